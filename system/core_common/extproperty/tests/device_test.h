#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "host/platform/system_properties.h"
#include "host/watch/platform_calls.h"

// A device for tests. The whole test program runs in a private root, so the library's absolute
// paths are real files and its mounts real mounts; the system properties are those of the program.

using android::init::InitExtensionPropertyImpl;
using android::init::PropertyMap;
using testing::HasSubstr;

namespace fs = std::filesystem;

constexpr char kSsv[] = "/mnt/vendor/vemrareserve/system/ssv/";
constexpr char kFirstFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_first_file";
constexpr char kCurrentFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file";
constexpr char kConvertFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_convert_file";
constexpr char kNoneClearMarker[] = "/mnt/vendor/vemrareserve/system/ssv/first_switch_none_clear";
constexpr char kCommonFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_common_prop_file";
constexpr char kForceConnectFile[] =
    "/mnt/vendor/vemrareserve/system/ssv/force_connect_internet_prop_file";
constexpr char kSimActionFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_action_file";
constexpr char kNvConfig[] = "/mnt/vendor/vemrareserve/radio/exp_operator_switch.config";
constexpr char kDataCommonFile[] = "/data/system/customize/data_common_prop_file.prop";
constexpr char kAppChannelFile[] = "/data/system/customize/empty_appchannel_prop_file.prop";
constexpr char kMountInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kModuleInfo[] = "/data/cota/cota_module_info.prop";

// Empties the device: no file, no mount, no property.
void ClearDevice();

// Writes a file, creating the directories above it.
void Write(const std::string& path, const std::string& content);
// These return "missing" for a file that is not there. Mode and owner are as "0600 1000:1000".
std::string Read(const std::string& path);
std::string ModeAndOwner(const std::string& path);
long CountEntries(const std::string& directory);
// Returns the mount points that were made on the device, the last one first, as "/b /a".
std::string MountPoints();

// A map as text is "a=1 b=2".
std::string Text(const PropertyMap& map);
PropertyMap Map(const std::string& text);
// Sets system properties.
void Set(const std::string& map);

// The host: keeps what it is handed and, as init does, applies it at once.
void Apply(int mode, PropertyMap map);
// Returns what was handed over since the last call, as "MODE a=1 b=2 | MODE c=3".
std::string HandedOver();
// Returns what `operation` hands over.
template <typename Operation>
std::string HandedOverBy(Operation operation) {
  operation(Apply);
  return HandedOver();
}

// Returns the lines logged since the last call, as "E message | W message"; at INFO and above,
// unless a test sets another minimum.
std::string Logged();

// Lets the first call of this kind on a path, or on any descriptor, fail while it lives. Expects
// that it is made.
class FailingCall : public watch::Observer {
 public:
  FailingCall(watch::Call call, const std::string& path, int error)
      : call_(call), path_(path), error_(error) {
    watch::SetObserver(this);
  }
  ~FailingCall() override {
    watch::SetObserver(nullptr);
    EXPECT_TRUE(failed_) << watch::CallName(call_) << " " << path_ << " was not called";
  }
  watch::Verdict Before(const watch::PlatformCall& call) override {
    if (failed_ || call.call != call_ || call.path != path_) return {};
    failed_ = true;
    return {true, error_};
  }

 private:
  const watch::Call call_;
  const std::string path_;
  const int error_;
  bool failed_ = false;
};

class DeviceTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  InitExtensionPropertyImpl service_;

 private:
  const long descriptors_ = CountEntries("/proc/self/fd");
};
