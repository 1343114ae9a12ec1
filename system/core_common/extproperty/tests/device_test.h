#pragma once

#include <string>
#include <vector>

#include <android-base/logging.h>
#include <gtest/gtest.h>

#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "host/platform/system_properties.h"

// A device for one test: an empty private root, no system property set, and the platform's logging
// library with its lines kept. The whole test program runs in the private root, so the library's
// absolute paths are real files and its mounts real mounts.
//
// What a test gives and gets is text. A map is "a=1 b=2", several items are joined by " | ", and
// long names and paths are written as "$display" and the like; see kAliases in device_test.cpp.

using android::init::PropertyMap;

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

std::string Text(const PropertyMap& map);
PropertyMap Map(const std::string& text);

// Returns `text` with its aliases replaced by what they stand for.
std::string Long(const std::string& text);

// Returns the fields, separated by ",", of rows that are separated by blanks.
std::vector<std::vector<std::string>> Table(const std::string& text);

class DeviceTest : public testing::Test {
 protected:
  void SetUp() override;

  // Writes a file, creating the directories above it.
  static void Write(const std::string& path, const std::string& content);
  // Writes property files, "PATH MAP" each.
  static void WriteFiles(const std::string& files);
  // These take several paths, separated by blanks. Exists() asks for any of them.
  static void MakeDirectories(const std::string& paths);
  static void Remove(const std::string& paths);
  static bool Exists(const std::string& paths);
  // Return "<missing>" for a file that is not there. Mode and owner are as "0600 1000:1000".
  static std::string Read(const std::string& path);
  static std::string ModeAndOwner(const std::string& path);
  static std::string State(const std::string& p) { return ModeAndOwner(p) + " " + Read(p); }

  // Sets system properties.
  static void Set(const std::string& map);

  // The host: keeps what it is handed and, as init does, applies it at once.
  static void Apply(int mode, PropertyMap map);
  // Returns what was handed over since the last call, "MODE MAP" each.
  static std::string TakeHandOvers();
  // Returns what an operation hands over after these properties were set.
  template <typename Operation>
  static std::string Run(Operation operation, const std::string& properties = "") {
    Set(properties);
    operation(Apply);
    return TakeHandOvers();
  }

  // Returns the lines logged at INFO and above since the last call, "E message" each.
  static std::string TakeLog();
  // Returns a result followed by what TakeLog() returns.
  static std::string WithLog(const std::string& result);
  // Returns true where all of these lines were logged since then.
  static bool LogHas(const std::string& lines);

  // Returns the mount points below the private root that the test has made, the last one first.
  static std::string MountPoints();

  Service service_;
};
