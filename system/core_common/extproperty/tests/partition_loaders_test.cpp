#include "tests/device_test.h"

#include <unistd.h>

using PartitionLoadersTest = DeviceTest;

TEST_F(PartitionLoadersTest, later_partitions_override_the_callers_map_and_earlier_ones) {
  const auto load = [&](const std::string& map_before) {
    PropertyMap map = Map(map_before);
    service_.loadExtensionPartitionProperties(&map);
    return Text(map);
  };
  EXPECT_EQ(load("a=1"), "a=1");
  std::string missing;
  for (const char* root :
       {"/odm", "$vendor/preload", "$vendor/tavlen", "$vendor/stock", "$vendor/product",
        "$vendor/region", "$vendor/carrier", "$vendor/bigball", "$vendor/company",
        "$vendor/engineering", "$vendor/manifest"}) {
    missing += std::string("W Couldn't load property file '") + root +
               "/build.prop': open() failed: No such file or directory | E partition property load "
               "failed:" +
               root + "/build.prop | ";
  }
  EXPECT_EQ(TakeLog() + " | ", missing);
  WriteFiles(
      "/odm/build.prop a=odm b=odm c=odm | $vendor/carrier/build.prop b=carrier | "
      "$vendor/manifest/build.prop a=manifest");
  EXPECT_EQ(load("c=caller d=caller"), "a=manifest b=carrier c=odm d=caller");
  Remove("/odm $vendor/carrier $vendor/manifest");
  // The customisation version follows the carrier image's type.
  const std::string type = "$image.carrier.type=";
  EXPECT_EQ(load(type + "empty"), type + "empty");
  EXPECT_EQ(load(type + "Empty"), "ro.vemra.cust.ver=1 " + type + "Empty");
  EXPECT_EQ(load(type + "x ro.vemra.cust.ver="), "ro.vemra.cust.ver= " + type + "x");
}

TEST_F(PartitionLoadersTest, directory_load_takes_every_readable_prop_entry_but_directories) {
  WriteFiles("/dir/a.prop a=1 | /dir/bprop b=1 | /dir/.prop hidden=1 | /dir/c.prop/x c=1");
  ASSERT_EQ(symlink("/dir/a.prop", "/dir/link.prop"), 0);
  PropertyMap map;
  for (const char* dir : {"/dir", "/no", "/dir/a.prop"}) service_.loadPropertiesFromDir(dir, &map);
  EXPECT_EQ(WithLog(Text(map)),
            "a=1 hidden=1 | W Couldn't load property file '/dir/link.prop': open() failed: Too "
            "many levels of symbolic links | E property load failed:/dir/link.prop");
}

TEST_F(PartitionLoadersTest, whole_partitions_are_loaded_through_the_virtual_slot_of_one) {
  struct Overriding : Service {
    using Service::loadExtensionPartitionProperties;
    void loadExtensionPartitionProperties(std::string partition, PropertyMap* out) override {
      (*out)["seen"] += partition + ";";
    }
  } service;
  PropertyMap map;
  service.InitExtensionPropertyImpl::loadExtensionPartitionProperties(&map);
  EXPECT_EQ(map["seen"].substr(0, 29), "/odm;/mnt/vendor/my_preload;/");
  service.oldNvKey = "known";
  Set("$image.company.date=D2");
  service.loadPersistOverrideProperties(Apply);
  EXPECT_EQ(TakeHandOvers(), "1 seen=/my_company; | 2 $backup=D2");
}

TEST_F(PartitionLoadersTest, five_sources_of_a_partition_override_one_another_in_order) {
  const auto load = [&](const char* root) {
    PropertyMap map;
    service_.loadExtensionPartitionSimswitchProperties(root, &map);
    return Text(map);
  };
  WriteFiles(
      "/p/etc/build.N.prop v=1 a=1 b=1 c=1 d=1 | /p/etc/build.S.prop a=2 w=2 b=2 | "
      "/p/properties/C/SimSwitchCurrentTime/a.prop b=3 x=3 c=3 | "
      "/p/properties/F/SimSwitchFirstTime/a.prop c=4 y=4 d=4 | /p/etc/build..prop no=1 | "
      "/p/properties/H/switchCarrierChannel/a.prop d=5 z=5 | "
      "/p/properties//SimSwitchFirstTime/a.prop no=1 | /p/properties/C/SimSwitchFirstTime/a.prop "
      "no=1");
  EXPECT_EQ(load("/p"), "");
  service_.nvTargetKey = "N";
  service_.ssvKey = "S";
  service_.simSwitchCurrentKey = "C";
  service_.simSwitchFirstKey = "F";
  service_.channelInfo = "H";
  EXPECT_EQ(WithLog(load("/none")), "");
  EXPECT_EQ(load("/p"), "a=2 b=3 c=4 d=5 v=1 w=2 x=3 y=4 z=5");
  MakeDirectories("/q/etc/build.N.prop /q/etc/build.S.prop");
  EXPECT_EQ(load("/q"), "");
  EXPECT_TRUE(
      LogHas("E nv old property load failed:/q/etc/build.N.prop | E ssv old property load "
             "failed:/q/etc/build.S.prop"));
}

TEST_F(PartitionLoadersTest, reload_takes_keys_from_properties_and_keeps_the_last_known) {
  const auto reload = [&](auto cb) { service_.loadSimSwitchOverrideProperties(cb); };
  service_.nvTargetKey = "N";
  service_.channelInfo = "H";
  WriteFiles(
      "/odm/etc/build.N.prop n=1 | /odm/properties/C/SimSwitchCurrentTime/a.prop b=odm | "
      "/odm/etc/build.ab-cd\xff.prop a=odm | $vendor/manifest/etc/build.ab-cd\xff.prop e=m | "
      "$vendor/manifest/properties/F/SimSwitchFirstTime/a.prop a=manifest | "
      "/img/etc/build.ab-cd\xff.prop e=cota | /img/build.prop no=1");
  // Without any key, only the special properties are loaded.
  EXPECT_EQ(Run(reload, "$carrier=V-9 $opta=AB"), "0 $display=9");
  EXPECT_EQ(Run(reload, "$display= $opta= $optb=CD"), "0 $display=9");
  for (std::string* key :
       {&service_.simSwitchFirstKey, &service_.simSwitchCurrentKey, &service_.ssvKey}) {
    *key = "K";
    EXPECT_EQ(Run(reload, "$display="), "0 n=1 | 0 $display=9");
    *key = "";
  }
  service_.ssvKey = "legacy";
  const std::string all = "0 a=manifest b=odm e=m n=1";
  EXPECT_EQ(Run(reload, "$opta=AB $optb=Cd\xff $switch.first=F $switch.current=C"), all);
  EXPECT_EQ(Run(reload, "$optb= $switch.first= $switch.current= $verify=1"), all);
  // A verified COTA image is a further root, and wins.
  EXPECT_EQ(Run(reload, "$root=/img"), "0 a=manifest b=odm e=cota n=1");
}

TEST_F(PartitionLoadersTest, actions_load_their_directories_or_file) {
  const auto run = [&](const std::string& action) {
    service_.loadSimSwitchOverrideProperties(action, Apply);
    return TakeHandOvers();
  };
  // Special properties belong to the reload only.
  Set("$carrier=V-9");
  for (const auto& row :
       Table("simSwitchCurrent,$switch.current,SimSwitchCurrentTime "
             "simSwitchFirst,$switch.first,SimSwitchFirstTime "
             "switchCarrierChannel,persist.sys.channel.info,switchCarrierChannel")) {
    WriteFiles("/odm/properties/K/" + row[2] + "/a.prop from=odm odm=1 | " +
               "$vendor/manifest/properties/K/" + row[2] + "/a.prop from=" + row[2]);
    EXPECT_EQ(run(row[0]), "") << "no key is known yet";
    Set(row[1] + "=K");
    EXPECT_EQ(run(row[0]), "0 from=" + row[2] + " odm=1");
    Set(row[1] + "=");
    EXPECT_EQ(run(row[0]), "0 from=" + row[2] + " odm=1") << "the earlier key is used";
  }
  TakeLog();
  for (const auto& row : Table("updateDataCommonProp,$common emptyAppchannelProp,$channel")) {
    EXPECT_EQ(run(row[0]), "");
    WriteFiles(row[1] + " a=" + row[0]);
    EXPECT_EQ(run(row[0]), "0 a=" + row[0]);
  }
  EXPECT_TRUE(
      LogHas("E load data common prop failed:$common | E load empty appchannel prop file "
             "failed:$channel"));
}
