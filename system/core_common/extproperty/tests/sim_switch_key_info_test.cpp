#include "tests/device_test.h"

#include <sys/stat.h>

namespace {

const std::string kSsv = "/mnt/vendor/vemrareserve/system/ssv/";
const std::string kFirst = kSsv + "sim_switch_first_file";
const std::string kCurrent = kSsv + "sim_switch_current_file";
const std::string kConvert = kSsv + "sim_switch_convert_file";
const std::string kNoneClear = kSsv + "first_switch_none_clear";
const std::string kCustomize = "/data/system/customize/";
const std::string kFlashback = "/mnt/vendor/vemrareserve/system/flag/flashback.cfg";

const std::pair<const std::string, std::string> kInvalidFlashback = {
    "ro.sys.customize.flashback.company", "invalid"};

}  // namespace

class SimSwitchKeyInfoTest : public DeviceTest {
 protected:
  // A legacy device whose boot carrier converts to the key "K".
  static void MakeLegacyDevice() {
    Write("/mnt/vendor/my_product/etc/nvmap.prop", "boot=K\n");
    SetProperty("ro.boot.vmcarrier", "boot");
  }

  // Returns what one boot's key pass, with a service object of its own, adds to `map`.
  PropertyMap KeyPass(PropertyMap map = {}) {
    service_.~Service();
    new (&service_) Service();
    service_.loadExtensionSimswitchKeyInfo(&map);
    return map;
  }
};

TEST_F(SimSwitchKeyInfoTest, legacy_key_is_converted_once_over_several_boots) {
  MakeLegacyDevice();
  EXPECT_EQ(KeyPass(), (PropertyMap{{"sys.sim.switch.first", "K"}, kInvalidFlashback}));
  EXPECT_EQ(service_.simSwitchFirstKey, "K");
  EXPECT_EQ(Read(kFirst), "sys.sim.switch.first=K\n");
  EXPECT_EQ(Read(kConvert), "sys.sim.switch.convert= true\n");
  EXPECT_EQ(ModeAndOwner(kFirst), "0600 1000:1000");
  EXPECT_EQ(ModeAndOwner(kConvert), "0600 1000:1000");
  EXPECT_FALSE(Exists(kNoneClear));
  const auto log = TakeLog();
  const auto at = std::find(log.begin(), log.end(), "I there is no ssv dir");
  ASSERT_NE(at, log.end());
  EXPECT_EQ(at[1], "I make dir: /mnt/vendor/vemrareserve/");
  EXPECT_TRUE(LogHas(log, "I create ssv dir: " + kSsv));
  EXPECT_EQ(log.back(), "I sim_switch_first_file is exist!!!");

  // The device's carrier changes: the converted key stays.
  Write("/mnt/vendor/my_product/etc/nvmap.prop", "boot=OTHER\n");
  EXPECT_EQ(KeyPass(), (PropertyMap{{"sys.sim.switch.first", "K"},
                                    {"sys.sim.switch.convert", "true"},
                                    kInvalidFlashback}));
  // The convert file alone keeps a lost first file from being converted anew.
  unlink(kFirst.c_str());
  EXPECT_EQ(KeyPass().count("sys.sim.switch.first"), 0u);
  EXPECT_FALSE(Exists(kFirst));
  EXPECT_EQ(service_.simSwitchFirstKey, "");
}

TEST_F(SimSwitchKeyInfoTest, failed_write_is_retried_and_a_cut_between_the_files_keeps_the_key) {
  MakeLegacyDevice();
  MakeDirectories(kFirst + ".elsewhere");
  ASSERT_EQ(symlink("nowhere", kFirst.c_str()), 0);  // Does not exist, and cannot be written.
  EXPECT_EQ(KeyPass(), (PropertyMap{kInvalidFlashback}));
  EXPECT_TRUE(LogHas(TakeLog(),
                     "E Unable to write sim_action_first_file open() failed: Too many levels of "
                     "symbolic links"));
  EXPECT_FALSE(Exists(kConvert));

  unlink(kFirst.c_str());
  EXPECT_EQ(KeyPass().at("sys.sim.switch.first"), "K");
  // Cut after the first file: the next boot finds the key and has nothing to convert.
  unlink(kConvert.c_str());
  Write("/mnt/vendor/my_product/etc/nvmap.prop", "boot=OTHER\n");
  EXPECT_EQ(KeyPass().at("sys.sim.switch.first"), "K");
  EXPECT_FALSE(Exists(kConvert));
}

TEST_F(SimSwitchKeyInfoTest, unmakeable_ssv_directory_is_logged_and_the_step_goes_on) {
  MakeLegacyDevice();
  Write("/mnt/vendor/vemrareserve", "in the way");
  KeyPass();
  const auto log = TakeLog();
  EXPECT_TRUE(LogHas(log, "E Unable to create ssv dir " + kSsv + ": Not a directory") ||
              LogHas(log, "E Unable to create ssv dir " + kSsv + ": File exists"));
  EXPECT_TRUE(
      LogHas(log, "E Unable to write sim_action_first_file open() failed: Not a directory"));
}

TEST_F(SimSwitchKeyInfoTest, none_clear_marker_is_written_only_on_a_conversion_that_asks_for_it) {
  MakeLegacyDevice();
  KeyPass({{"ro.none.clear.switch.first", "true"}});
  EXPECT_EQ(Read(kNoneClear), "1");
  EXPECT_EQ(ModeAndOwner(kNoneClear), "0600 1000:1000");

  unlink(kFirst.c_str());
  unlink(kConvert.c_str());
  Write(kNoneClear, "old");
  KeyPass({{"ro.none.clear.switch.first", "true"}});
  EXPECT_EQ(Read(kNoneClear), "old");
}

TEST_F(SimSwitchKeyInfoTest, sim_action_file_is_a_property_file_and_the_raw_ssv_key) {
  Write(kSsv + "sim_action_file", "ssv");
  Write("/odm/etc/nvmap.prop", "ssv=S\n");
  EXPECT_EQ(KeyPass().at("sys.sim.switch.first"), "S");
  EXPECT_EQ(service_.ssvKey, "ssv");
  EXPECT_TRUE(LogHas(TakeLog(), "I read ssv file"));
  // The conversion's mark counts in the convert file only.
  unlink(kFirst.c_str());
  unlink(kConvert.c_str());
  Write(kSsv + "sim_action_file", "sys.sim.switch.convert=true");
  Write("/odm/etc/nvmap.prop", "boot=B\n");
  SetProperty("ro.boot.vmcarrier", "boot");
  EXPECT_EQ(KeyPass().at("sys.sim.switch.first"), "B");
}

TEST_F(SimSwitchKeyInfoTest, old_format_files_are_upgraded_once_with_their_text_untrimmed) {
  Write(kFirst, "K\n");
  Write(kCurrent, "C");
  chmod(kCurrent.c_str(), 0644);
  EXPECT_EQ(KeyPass(), (PropertyMap{{"sys.sim.switch.first", "K\n"},
                                    {"sys.sim.switch.current", "C"},
                                    kInvalidFlashback}));
  EXPECT_EQ(service_.simSwitchFirstKey, "K\n");
  EXPECT_EQ(service_.simSwitchCurrentKey, "C");
  EXPECT_EQ(Read(kFirst), "sys.sim.switch.first=K\n\n");
  EXPECT_EQ(Read(kCurrent), "sys.sim.switch.current=C\n");
  EXPECT_EQ(ModeAndOwner(kCurrent), "0644 1000:1000");
  auto log = TakeLog();
  log.erase(log.begin(), log.begin() + 3);  // The missing NV sources.
  EXPECT_EQ(log,
            (std::vector<std::string>{"I sim_switch_first_file is exist!!!",
                                      "E Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY",
                                      "I sim_switch_current_file is exist!!!",
                                      "E Convert tmp_current_key to SIM_SWITCH_CURRENT_PROPERTY"}));

  EXPECT_EQ(KeyPass().at("sys.sim.switch.first"), "K");
  EXPECT_FALSE(LogHas(TakeLog(), "E Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY"));
  Write(kFirst, "");
  EXPECT_EQ(KeyPass().count("sys.sim.switch.first"), 0u);
  EXPECT_EQ(Read(kFirst), "");
}

TEST_F(SimSwitchKeyInfoTest, copies_under_data_win_and_carry_the_channel) {
  Write(kFirst, "sys.sim.switch.first=A\n");
  Write(kCurrent, "sys.sim.switch.current=A\n");
  Write(kCustomize + "sim_switch/sim_switch_first_file", "sys.sim.switch.first=B\n");
  Write(kCustomize + "sim_switch/sim_switch_current_file", "sys.sim.switch.current=C\nx=copy\n");
  Write(kSsv + "sim_switch_common_prop_file", "x=common\ncount=3\n");
  Write(kCustomize + "data_common_prop_file.prop", "persist.sys.channel.info=ch\nx=data\n");
  Write(kSsv + "force_connect_internet_prop_file", "ro.vemra.internet.force.connect=1\n");
  Write(kFlashback, "x=flashback\n");
  EXPECT_EQ(KeyPass(), (PropertyMap{{"sys.sim.switch.first", "B"},
                                    {"sys.sim.switch.current", "C"},
                                    {"count", "3"},
                                    {"persist.sys.channel.info", "ch"},
                                    {"ro.vemra.internet.force.connect", "1"},
                                    {"x", "flashback"}}));
  EXPECT_EQ(service_.simSwitchFirstKey, "B");
  EXPECT_EQ(service_.simSwitchCurrentKey, "C");
  EXPECT_EQ(service_.channelInfo, "ch");
}

TEST_F(SimSwitchKeyInfoTest, unreadable_files_are_logged_with_their_texts) {
  for (const std::string& file :
       {kFirst, kCurrent, kConvert, kFlashback, kSsv + "sim_action_file",
        kSsv + "sim_switch_common_prop_file", kSsv + "force_connect_internet_prop_file",
        kCustomize + "data_common_prop_file.prop", kCustomize + "sim_switch/sim_switch_first_file",
        kCustomize + "sim_switch/sim_switch_current_file"}) {
    MakeDirectories(file);
  }
  EXPECT_TRUE(KeyPass().empty());
  std::vector<std::string> errors;
  for (const std::string& line : TakeLog()) {
    if (line[0] == 'E' && line.find("nv_flag") == std::string::npos) errors.push_back(line);
  }
  EXPECT_EQ(
      errors,
      (std::vector<std::string>{
          "E sim switch convert property load failed:" + kConvert,
          "E read ssv failed :" + kSsv + "sim_action_file",
          "E sim switch key property failed:" + kFirst,
          "E sim switch key property failed:" + kCurrent,
          "E sim switch key property failed:" + kCustomize + "sim_switch/sim_switch_current_file",
          "E reboot count key property failed:" + kSsv + "sim_switch_common_prop_file",
          "E sim switch key property failed:" + kCustomize + "sim_switch/sim_switch_first_file",
          "E sim switch key property failed:" + kCustomize + "data_common_prop_file.prop",
          "E force connect internet property failed:" + kSsv + "force_connect_internet_prop_file",
          "E flash back property failed:" + kFlashback}));
}

TEST_F(SimSwitchKeyInfoTest, flashback_default_gives_way_to_what_is_known) {
  EXPECT_EQ(KeyPass({{kInvalidFlashback.first, "kept"}}).at(kInvalidFlashback.first), "kept");
  SetProperty(kInvalidFlashback.first, "set");
  EXPECT_TRUE(KeyPass().empty());
}
