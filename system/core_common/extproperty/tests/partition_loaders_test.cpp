#include "tests/device_test.h"

class PartitionLoadersTest : public DeviceTest {
 protected:
  std::string LoadPartitions(const std::string& map_before) {
    PropertyMap map = Map(map_before);
    service_.loadExtensionPartitionProperties(&map);
    return Text(map);
  }
  std::string Reload(const std::string& properties) {
    Set(properties);
    return HandedOverBy([&](auto cb) { service_.loadSimSwitchOverrideProperties(cb); });
  }
  std::string Act(const std::string& action) {
    return HandedOverBy([&](auto cb) { service_.loadSimSwitchOverrideProperties(action, cb); });
  }
};

TEST_F(PartitionLoadersTest, later_partitions_override_the_callers_map_and_earlier_ones) {
  EXPECT_EQ(LoadPartitions("a=1"), "a=1");
  EXPECT_THAT(Logged(), HasSubstr("E partition property load failed:/odm/build.prop | "));
  Write("/odm/build.prop", "a=odm\nb=odm\nc=odm\n");
  Write("/mnt/vendor/my_carrier/build.prop", "b=carrier\nd=carrier\n");
  Write("/mnt/vendor/my_bigball/build.prop", "d=bigball\n");
  Write("/mnt/vendor/my_manifest/build.prop", "a=manifest\n");
  EXPECT_EQ(LoadPartitions("c=caller e=caller"), "a=manifest b=carrier c=odm d=bigball e=caller");
}

TEST_F(PartitionLoadersTest, customisation_version_follows_the_carrier_images_type) {
  const std::string type = "ro.vemra.image.my_carrier.type=";
  EXPECT_EQ(LoadPartitions(type + "empty"), type + "empty");
  EXPECT_EQ(LoadPartitions(type), "ro.vemra.cust.ver=1 " + type);
  EXPECT_EQ(LoadPartitions("ro.vemra.cust.ver= " + type + "x"), "ro.vemra.cust.ver= " + type + "x");
}

TEST_F(PartitionLoadersTest, directory_load_takes_every_readable_prop_entry_but_directories) {
  Write("/dir/.prop", "a=1\n");
  Write("/dir/bprop", "b=1\n");
  fs::create_directories("/dir/c.prop");
  fs::create_symlink("/dir/bprop", "/dir/link.prop");
  PropertyMap map;
  for (const char* dir : {"/dir", "/no"}) service_.loadPropertiesFromDir(dir, &map);
  EXPECT_EQ(Text(map), "a=1");
  EXPECT_THAT(Logged(), testing::Not(HasSubstr("c.prop")));
}

TEST_F(PartitionLoadersTest, five_sources_of_a_partition_override_one_another_in_order) {
  Write("/p/etc/build.N.prop", "v=1\na=1\n");
  Write("/p/etc/build.S.prop", "w=2\na=2\nb=2\n");
  Write("/p/properties/C/SimSwitchCurrentTime/a.prop", "x=3\nb=3\nc=3\n");
  Write("/p/properties/F/SimSwitchFirstTime/a.prop", "y=4\nc=4\nd=4\n");
  Write("/p/properties/H/switchCarrierChannel/a.prop", "z=5\nd=5\n");
  Write("/p/properties//SimSwitchFirstTime/a.prop", "no=1\n");
  Write("/p/properties/C/SimSwitchFirstTime/a.prop", "no=1\n");
  PropertyMap map;
  service_.loadExtensionPartitionSimswitchProperties("/p", &map);
  EXPECT_EQ(Text(map), "") << "no key is known";
  service_.nvTargetKey = "N";
  service_.ssvKey = "S";
  service_.simSwitchCurrentKey = "C";
  service_.simSwitchFirstKey = "F";
  service_.channelInfo = "H";
  service_.loadExtensionPartitionSimswitchProperties("/p", &map);
  EXPECT_EQ(Text(map), "a=2 b=3 c=4 d=5 v=1 w=2 x=3 y=4 z=5");
}

TEST_F(PartitionLoadersTest, reload_takes_keys_from_properties_and_keeps_the_last_known) {
  Write("/odm/etc/build.N.prop", "n=1\n");
  Write("/odm/etc/build.ab-cd\xff.prop", "a=odm\n");
  Write("/odm/properties/C/SimSwitchCurrentTime/a.prop", "b=odm\n");
  Write("/mnt/vendor/my_manifest/properties/F/SimSwitchFirstTime/a.prop", "a=manifest\n");
  Write("/img/etc/build.ab-cd\xff.prop", "b=cota\n");
  Write("/img/build.prop", "no=1\n");
  service_.nvTargetKey = "N";
  // Without any of three keys, only the special properties are loaded.
  Set("ro.vemra.image.my_carrier.version_name=V-9");
  EXPECT_EQ(Reload("persist.sys.vemra.operator.opta=AB"),
            "0 ro.vemra.customize.display.version_name=9");
  service_.ssvKey = "K";
  EXPECT_EQ(Reload(""), "0 n=1");
  EXPECT_EQ(Reload("persist.sys.vemra.operator.optb=Cd\xff sys.sim.switch.first=F "
                   "sys.sim.switch.current=C"),
            "0 a=manifest b=odm n=1");
  EXPECT_EQ(Reload("persist.sys.vemra.operator.optb= sys.sim.switch.first= "
                   "sys.sim.switch.current= sys.cotaimg.verify=1"),
            "0 a=manifest b=odm n=1");
  // A verified COTA image is a further root, and wins.
  EXPECT_EQ(Reload("sys.cota.load.properties=/img"), "0 a=manifest b=cota n=1");
}

TEST_F(PartitionLoadersTest, actions_load_their_directories_or_file) {
  // Special properties belong to the reload only.
  Set("ro.vemra.image.my_carrier.version_name=V-9");
  const char* const keyed[][3] = {
      {"simSwitchCurrent", "sys.sim.switch.current", "SimSwitchCurrentTime"},
      {"simSwitchFirst", "sys.sim.switch.first", "SimSwitchFirstTime"},
      {"switchCarrierChannel", "persist.sys.channel.info", "switchCarrierChannel"}};
  for (const auto& [action, property, directory] : keyed) {
    const std::string file = std::string("/properties/K/") + directory + "/a.prop";
    Write("/odm" + file, "from=odm\nodm=1\n");
    Write("/mnt/vendor/my_manifest" + file, "from=manifest\n");
    Set(property + std::string("=K"));
    EXPECT_EQ(Act(action), "0 from=manifest odm=1") << action;
    fs::remove("/odm" + file);
  }
  EXPECT_EQ(Act("updateDataCommonProp") + Act("emptyAppchannelProp"), "");
  Write(kDataCommonFile, "common=1\n");
  Write(kAppChannelFile, "channel=1\n");
  EXPECT_EQ(Act("updateDataCommonProp") + Act("emptyAppchannelProp"), "0 common=10 channel=1");
}
