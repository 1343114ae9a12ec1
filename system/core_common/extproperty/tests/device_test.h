#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "host/platform/system_properties.h"

// A device for one test: an empty private root, no system property set, and the platform's logging
// library with its lines kept. The whole test program runs in the private root, so the library's
// absolute paths are real files and its mounts real mounts.

using android::init::PropertyMap;

struct HandOver {
  int mode;
  PropertyMap map;
  bool operator==(const HandOver& other) const { return mode == other.mode && map == other.map; }
};

// The service object with its state in view.
class Service : public android::init::InitExtensionPropertyImpl {
 public:
  using InitExtensionPropertyImpl::channelInfo;
  using InitExtensionPropertyImpl::libName;
  using InitExtensionPropertyImpl::nvTargetKey;
  using InitExtensionPropertyImpl::oldNvKey;
  using InitExtensionPropertyImpl::simSwitchCurrentKey;
  using InitExtensionPropertyImpl::simSwitchFirstKey;
  using InitExtensionPropertyImpl::spareString;
  using InitExtensionPropertyImpl::ssvKey;
};

class DeviceTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Writes a file, creating the directories above it.
  static void Write(const std::string& path, const std::string& content);
  static void MakeDirectories(const std::string& path);
  // Returns the content of the file, or "<missing>".
  static std::string Read(const std::string& path);
  static bool Exists(const std::string& path);
  // Returns mode and owner as "0600 1000:1000".
  static std::string ModeAndOwner(const std::string& path);

  static void SetProperty(const std::string& name, const std::string& value) {
    device::ApplyProperty(name, value);
  }

  // The host: keeps what it is handed and, as init does, applies it at once.
  static void Apply(int mode, PropertyMap map);
  // Returns what was handed over since the last call.
  static std::vector<HandOver> TakeHandOvers();

  // Returns the lines logged at INFO and above since the last call as "E message", in order.
  static std::vector<std::string> TakeLog();
  static bool LogHas(const std::vector<std::string>& log, const std::string& line);

  // Returns the mount points below the private root that the test has made.
  static std::vector<std::string> MountPoints();

  Service service_;
};
