#include "tests/device_test.h"

#include "VemraExtensionProperty/carrier/create_directory.h"
#include "VemraExtensionProperty/carrier/nv_ssv_carrier_key.h"

using namespace android::init;

using CarrierKeyTest = DeviceTest;

TEST_F(CarrierKeyTest, highest_partition_that_maps_the_key_decides) {
  WriteFiles("/odm/etc/flags.prop K=odm L=odm | $vendor/manifest/etc/flags.prop K=manifest");
  MakeDirectories("$vendor/region/etc/flags.prop");
  const auto translate = [](const std::string& key) {
    std::string result = "stale";
    find_nv_ssv_target_key(key, "flags.prop", &result);
    return result + ";";
  };
  EXPECT_EQ(translate("") + translate("K") + translate({"K\0\0x", 4}), ";manifest;manifest;");
  EXPECT_EQ(TakeLog(), "") << "a lower partition was read though a higher one decided";
  EXPECT_EQ(translate("L") + translate("M"), "odm;;");
  EXPECT_TRUE(LogHas("E map file load failed:$vendor/region/etc/flags.prop"));
  WriteFiles("/odm/etc/nvmap.prop boot=B nv=N ssv=S");
  for (const auto& row : Table(",boot,nv,ssv,B known,boot,nv,ssv,known ,unmapped,nv,ssv,N "
                               ",,unmapped,ssv,S ,,,unmapped,")) {
    std::string key = row[0];
    Set("ro.boot.vmcarrier=" + row[1]);
    load_convert_first_key(&key, row[2], row[3]);
    EXPECT_EQ(key, row[4]);
  }
  std::string ssv = "kept";
  MakeDirectories("$ssv/sim_action_file");
  read_old_ssv_key(&ssv);
  EXPECT_TRUE(ssv == "kept" && LogHas("E read old ssv failed :$ssv/sim_action_file"));
}

TEST_F(CarrierKeyTest, nv_key_is_the_first_eight_bytes_of_the_first_source_with_content) {
  std::string nv = "old:", target = "old";
  const auto load = [&] {
    load_old_nv_key(&nv, &target);
    return WithLog(nv + " " + target);
  };
  WriteFiles("/odm/etc/flags.prop ABCDEFGH=target");
  const std::string failed = " | E read nv_flag failed :";
  const std::string first = failed + "/dev/block/platform/bootdevice/by-name/reserve_exp1";
  const std::string second = "/dev/block/bootdevice/by-name/reserve_exp1";
  EXPECT_EQ(load(), "old: old" + failed + "$nv_config" + first + failed + second);
  Write("$nv_config", "");
  Write(second, "ABCDEFGHIJ");
  EXPECT_EQ(load(), "old:ABCDEFGH target | W Couldn't file$nv_config" + first);
}

TEST_F(CarrierKeyTest, create_directory_makes_what_ends_in_a_separator) {
  EXPECT_EQ(createDirectory("/a/b/c"), 0);
  EXPECT_EQ(ModeAndOwner("/a/b") + ModeAndOwner("/a/b/c"), "0771 0:0<missing>");
  EXPECT_EQ(TakeLog(), "I make dir: /a/ | I make dir: /a/b/");
  EXPECT_EQ(createDirectory("/a/b/c/") + createDirectory("/w\\x\\"), 0);
  EXPECT_TRUE(Exists("/a/b/c") && Exists("/w\\x\\"));
}
