#include "tests/device_test.h"

#include <sys/stat.h>

namespace {

const std::string kCarrier = "/mnt/vendor/my_carrier";
const std::string kDataCommon = "/data/system/customize/data_common_prop_file.prop";
const std::string kEmptyAppChannel = "/data/system/customize/empty_appchannel_prop_file.prop";

}  // namespace

class SimSwitchLoadersTest : public DeviceTest {
 protected:
  // Returns the map of the one ordinary hand-over that the action caused, or an empty one.
  PropertyMap RunAction(const std::string& action) {
    service_.loadSimSwitchOverrideProperties(action, Apply);
    const auto hand_overs = TakeHandOvers();
    if (hand_overs.empty()) return {};
    EXPECT_EQ(hand_overs.size(), 1u);
    EXPECT_EQ(hand_overs[0].mode, 0);
    EXPECT_FALSE(hand_overs[0].map.empty());
    return hand_overs[0].map;
  }
};

TEST_F(SimSwitchLoadersTest, five_sources_of_a_partition_override_one_another_in_order) {
  const std::string files[] = {
      "/etc/build.N.prop", "/etc/build.S.prop", "/properties/C/SimSwitchCurrentTime/x.prop",
      "/properties/F/SimSwitchFirstTime/x.prop", "/properties/H/switchCarrierChannel/x.prop"};
  for (int i = 0; i < 5; ++i) {
    const std::string source = std::to_string(i + 1);
    std::string content = "own" + source + "=1\n";
    for (int shared = 1; shared <= i + 1; ++shared) {
      content += "shared" + std::to_string(shared) + "=" + source + "\n";
    }
    Write(kCarrier + files[i], content);
  }
  Write(kCarrier + "/properties/C/SimSwitchFirstTime/x.prop", "not.looked.at=1\n");

  PropertyMap map = {{"kept", "1"}};
  service_.loadExtensionPartitionSimswitchProperties(kCarrier, &map);
  EXPECT_EQ(map, (PropertyMap{{"kept", "1"}}));

  service_.nvTargetKey = "N";
  service_.ssvKey = "S";
  service_.simSwitchCurrentKey = "C";
  service_.simSwitchFirstKey = "F";
  service_.channelInfo = "H";
  map.clear();
  service_.loadExtensionPartitionSimswitchProperties(kCarrier, &map);
  EXPECT_EQ(map, (PropertyMap{{"own1", "1"},
                              {"own2", "1"},
                              {"own3", "1"},
                              {"own4", "1"},
                              {"own5", "1"},
                              {"shared1", "5"},
                              {"shared2", "5"},
                              {"shared3", "5"},
                              {"shared4", "5"},
                              {"shared5", "5"}}));
}

TEST_F(SimSwitchLoadersTest, missing_legacy_files_are_silent_and_unreadable_ones_are_not) {
  service_.nvTargetKey = "N";
  service_.ssvKey = "S\n";
  PropertyMap map;
  service_.loadExtensionPartitionSimswitchProperties("/odm", &map);
  EXPECT_TRUE(TakeLog().empty());
  MakeDirectories("/odm/etc/build.N.prop");
  MakeDirectories("/odm/etc/build.S\n.prop");
  service_.ssvKey = "N";
  service_.loadExtensionPartitionSimswitchProperties("/odm", &map);
  const auto log = TakeLog();
  EXPECT_TRUE(LogHas(log, "E nv old property load failed:/odm/etc/build.N.prop"));
  EXPECT_TRUE(LogHas(log, "E ssv old property load failed:/odm/etc/build.N.prop"));
}

TEST_F(SimSwitchLoadersTest, reload_without_any_key_runs_only_the_special_properties) {
  Write("/odm/etc/build.N.prop", "n=1\n");
  service_.nvTargetKey = "N";
  service_.channelInfo = "H";
  SetProperty("ro.vemra.image.my_carrier.version_name", "V-9");
  SetProperty("persist.sys.vemra.operator.opta", "AB");
  service_.loadSimSwitchOverrideProperties(Apply);
  EXPECT_EQ(TakeHandOvers(),
            (std::vector<HandOver>{{0, {{"ro.vemra.customize.display.version_name", "9"}}}}));
  EXPECT_EQ(service_.ssvKey, "");
}

TEST_F(SimSwitchLoadersTest, reload_takes_keys_from_properties_and_keeps_the_last_known) {
  SetProperty("persist.sys.vemra.operator.opta", "AB");
  SetProperty("persist.sys.vemra.operator.optb", "Cd\xff");
  SetProperty("sys.sim.switch.first", "F");
  service_.ssvKey = "legacy";
  service_.simSwitchCurrentKey = "C";
  Write("/odm/etc/build.ab-cd\xff.prop", "a=odm\n");
  Write("/odm/properties/C/SimSwitchCurrentTime/x.prop", "b=odm\n");
  Write("/mnt/vendor/my_manifest/properties/F/SimSwitchFirstTime/x.prop", "a=manifest\n");
  service_.loadSimSwitchOverrideProperties(Apply);
  EXPECT_EQ(TakeHandOvers(), (std::vector<HandOver>{{0, {{"a", "manifest"}, {"b", "odm"}}}}));
  EXPECT_EQ(service_.ssvKey, "ab-cd\xff");
  EXPECT_EQ(service_.simSwitchFirstKey, "F");

  SetProperty("sys.sim.switch.first", "");
  SetProperty("persist.sys.vemra.operator.optb", "");
  service_.loadSimSwitchOverrideProperties(Apply);
  EXPECT_EQ(service_.simSwitchFirstKey, "F");
  EXPECT_EQ(service_.ssvKey, "ab-cd\xff");
}

TEST_F(SimSwitchLoadersTest, verified_cota_image_is_a_further_root_that_wins) {
  service_.ssvKey = "S";
  Write("/mnt/vendor/my_manifest/etc/build.S.prop", "a=manifest\n");
  Write("/data/cota/img/etc/build.S.prop", "a=cota\n");
  const auto reload = [&] {
    service_.loadSimSwitchOverrideProperties(Apply);
    return TakeHandOvers().at(0).map.at("a");
  };
  SetProperty("sys.cotaimg.verify", "1");
  EXPECT_EQ(reload(), "manifest");
  SetProperty("sys.cota.load.properties", "/data/cota/img");
  EXPECT_EQ(reload(), "cota");
  SetProperty("sys.cotaimg.verify", "11");
  EXPECT_EQ(reload(), "manifest");
}

TEST_F(SimSwitchLoadersTest, actions_load_their_directories_from_every_partition) {
  for (const char* kind : {"SimSwitchCurrentTime", "SimSwitchFirstTime", "switchCarrierChannel"}) {
    Write(std::string("/odm/properties/K/") + kind + "/x.prop", "from=odm\n");
    Write(std::string("/mnt/vendor/my_manifest/properties/K/") + kind + "/x.prop",
          std::string("from=") + kind + "\n");
  }
  const char* const actions[][3] = {
      {"simSwitchCurrent", "sys.sim.switch.current", "SimSwitchCurrentTime"},
      {"simSwitchFirst", "sys.sim.switch.first", "SimSwitchFirstTime"},
      {"switchCarrierChannel", "persist.sys.channel.info", "switchCarrierChannel"}};
  SetProperty("ro.vendor.vemra.version_suffix", "S");
  SetProperty("ro.build.display.id", "A_B");
  for (const auto& [action, property, kind] : actions) {
    EXPECT_EQ(RunAction(action), PropertyMap()) << "no key is known yet";
    SetProperty(property, "K");
    EXPECT_EQ(RunAction(action), (PropertyMap{{"from", kind}}));
    SetProperty(property, "");
    EXPECT_EQ(RunAction(action), (PropertyMap{{"from", kind}})) << "the earlier key is used";
  }
  EXPECT_EQ(RunAction("SimSwitchCurrent"), PropertyMap());
  EXPECT_EQ(RunAction(""), PropertyMap());
}

TEST_F(SimSwitchLoadersTest, data_file_actions_report_a_missing_file) {
  EXPECT_EQ(RunAction("updateDataCommonProp"), PropertyMap());
  EXPECT_EQ(TakeLog().back(), "E load data common prop failed:" + kDataCommon);
  EXPECT_EQ(RunAction("emptyAppchannelProp"), PropertyMap());
  EXPECT_EQ(TakeLog().back(), "E load empty appchannel prop file failed:" + kEmptyAppChannel);
  Write(kDataCommon, "a=1\n");
  Write(kEmptyAppChannel, "b=1\n");
  EXPECT_EQ(RunAction("updateDataCommonProp"), (PropertyMap{{"a", "1"}}));
  EXPECT_EQ(RunAction("emptyAppchannelProp"), (PropertyMap{{"b", "1"}}));
}
