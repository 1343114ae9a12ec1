#include "tests/device_test.h"

#include <sys/mount.h>

#include "VemraExtensionProperty/channel_info_restore.h"
#include "VemraExtensionProperty/forced_internet_connection.h"

namespace {

const std::string kEmptyAppChannel = "/data/system/customize/empty_appchannel_prop_file.prop";
const std::string kDataCommon = "/data/system/customize/data_common_prop_file.prop";
const std::string kSimSwitchCommon =
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_common_prop_file";
const std::string kForceConnect =
    "/mnt/vendor/vemrareserve/system/ssv/force_connect_internet_prop_file";

}  // namespace

class EmergencyShutdownTest : public DeviceTest {
 protected:
  static std::vector<HandOver> Check() {
    android::init::checkAndRestoreChannelInfo(Apply);
    return TakeHandOvers();
  }
  static std::vector<HandOver> Force() {
    android::init::forceInternetConnection(Apply);
    return TakeHandOvers();
  }
};

TEST_F(EmergencyShutdownTest, replay_hands_over_what_it_accumulates_and_deletes_nothing) {
  EXPECT_TRUE(Check().empty());
  Write(kEmptyAppChannel, "a=app\nb=app\n");
  Write(kDataCommon, "b=data\nc=data\n");
  Write(kSimSwitchCommon, "d=never\n");
  for (const char* shutdown : {"0", "11", "1 "}) {
    SetProperty("persist.sys.911.shutdown", shutdown);
    EXPECT_EQ(Check(), (std::vector<HandOver>{{0, {{"a", "app"}, {"b", "app"}}},
                                              {0, {{"a", "app"}, {"b", "data"}, {"c", "data"}}}}));
  }
  SetProperty("persist.sys.911.shutdown", "1");
  SetProperty("persist.sys.recopy.preload.vminstalled", "true");
  EXPECT_EQ(Check().size(), 2u);
  EXPECT_TRUE(Exists(kEmptyAppChannel) && Exists(kDataCommon) && Exists(kSimSwitchCommon));
}

TEST_F(EmergencyShutdownTest, replay_hands_over_even_an_unreadable_file) {
  MakeDirectories(kEmptyAppChannel);
  MakeDirectories(kDataCommon);
  EXPECT_EQ(Check(), (std::vector<HandOver>{{0, {}}, {0, {}}}));
  const auto log = TakeLog();
  EXPECT_TRUE(LogHas(log, "E reboot empty appchanel property failed:" + kEmptyAppChannel));
  EXPECT_TRUE(LogHas(log, "E reboot data common property failed:" + kDataCommon));
}

TEST_F(EmergencyShutdownTest, restore_resets_the_channel_once_and_deletes_its_files) {
  SetProperty("persist.sys.911.shutdown", "1");
  SetProperty("persist.sys.channel.info", "X");
  Write(kEmptyAppChannel, "a=1\n");
  Write(kDataCommon, "b=1\n");
  Write(kSimSwitchCommon, "c=1\n");
  EXPECT_EQ(Check(),
            (std::vector<HandOver>{{2,
                                    {{"persist.sys.channel.info", ""},
                                     {"persist.sys.recopy.preload.vminstalled", "none"}}}}));
  EXPECT_FALSE(Exists(kEmptyAppChannel) || Exists(kDataCommon) || Exists(kSimSwitchCommon));
  EXPECT_TRUE(Check().empty()) << "the flag that the host stored ends the restore";
}

TEST_F(EmergencyShutdownTest, restore_resets_removal_flags_where_any_is_set) {
  for (const char* flag : {"persist.sys.remove.region.apk", "persist.sys.remove.carrier.apk",
                           "persist.sys.remove.region-all.apk"}) {
    device::ClearProperties();
    SetProperty("persist.sys.911.shutdown", "1");
    SetProperty("persist.sys.channel.country.info", "Y");
    SetProperty(flag, "x");
    EXPECT_EQ(Check(), (std::vector<HandOver>{{2,
                                               {{"persist.sys.channel.country.info", ""},
                                                {"persist.sys.remove.region.apk", "false"},
                                                {"persist.sys.recopy.preload.vminstalled", "true"},
                                                {"persist.sys.reboot.time.count", "0"},
                                                {"persist.sys.remove.carrier.apk", "false"},
                                                {"persist.sys.remove.region-all.apk", "false"}}}}));
  }
}

TEST_F(EmergencyShutdownTest, undeletable_data_file_is_logged_and_handed_over_after_the_reset) {
  SetProperty("persist.sys.911.shutdown", "1");
  Write(kDataCommon, "b=1\n");
  Write(kSimSwitchCommon, "c=1\n");
  // A mount point cannot be deleted.
  ASSERT_EQ(mount(kDataCommon.c_str(), kDataCommon.c_str(), nullptr, MS_BIND, nullptr), 0);
  const PropertyMap reset = {{"persist.sys.recopy.preload.vminstalled", "none"}};
  PropertyMap with_file = reset;
  with_file["b"] = "1";
  EXPECT_EQ(Check(), (std::vector<HandOver>{{2, reset}, {0, with_file}}));
  EXPECT_EQ(TakeLog(), std::vector<std::string>{"E unlink() failed for " + kDataCommon});
  EXPECT_FALSE(Exists(kSimSwitchCommon));
}

TEST_F(EmergencyShutdownTest, forced_connection_needs_all_three_conditions) {
  MakeDirectories("/mnt/vendor/vemrareserve/system/ssv");
  const char* const unmet[][3] = {
      {"", "1", ""}, {"1", "", ""}, {"1", "1", "0"}, {"11", "1", ""}, {"1", "1 ", ""}};
  for (const auto& [shutdown, allowed, decided] : unmet) {
    SetProperty("persist.sys.911.shutdown", shutdown);
    SetProperty("ro.vemra.internet.whether.force.connect", allowed);
    SetProperty("ro.vemra.internet.force.connect", decided);
    EXPECT_TRUE(Force().empty()) << shutdown << allowed << decided;
    EXPECT_FALSE(Exists(kForceConnect));
  }
}

TEST_F(EmergencyShutdownTest, forced_connection_is_recorded_and_handed_over_even_unrecorded) {
  SetProperty("persist.sys.911.shutdown", "1");
  SetProperty("ro.vemra.internet.whether.force.connect", "1");
  const std::vector<HandOver> expected = {{0, {{"ro.vemra.internet.force.connect", "1"}}}};
  EXPECT_EQ(Force(), expected);
  EXPECT_EQ(TakeLog(), std::vector<std::string>{
                           "E Unable to write force_connect_internet_prop_file_path open() failed: "
                           "No such file or directory"});
  SetProperty("ro.vemra.internet.force.connect", "");
  MakeDirectories("/mnt/vendor/vemrareserve/system/ssv");
  EXPECT_EQ(Force(), expected);
  EXPECT_EQ(Read(kForceConnect), "ro.vemra.internet.force.connect=1\n");
  EXPECT_TRUE(Force().empty());
}
