#include "tests/device_test.h"

#include "VemraExtensionProperty/carrier/nv_ssv_carrier_key.h"

using CarrierKeyTest = DeviceTest;

TEST_F(CarrierKeyTest, highest_partition_that_maps_the_key_decides) {
  Write("/odm/etc/flags.prop", "K=odm\nL=odm\nimport /odm/etc/flags.prop K\n");
  Write("/mnt/vendor/my_manifest/etc/flags.prop", "K=manifest\n");
  fs::create_directories("/mnt/vendor/my_region/etc/flags.prop");
  const auto translate = [](const std::string& key) {
    std::string result = "stale";
    android::init::find_nv_ssv_target_key(key, "flags.prop", &result);
    return result;
  };
  EXPECT_EQ(translate({"K\0\0x", 4}), "manifest");
  EXPECT_EQ(Logged(), "") << "a lower partition was read though a higher one decided";
  EXPECT_EQ(translate("L"), "odm");
  EXPECT_THAT(Logged(), HasSubstr("E map file load failed:/mnt/vendor/my_region/etc/flags.prop"));
  EXPECT_EQ(translate("M") + translate(""), "");
}

TEST_F(CarrierKeyTest, nv_key_is_the_first_eight_bytes_of_the_first_source_with_content) {
  Write("/odm/etc/flags.prop", "ABCDEFGH=target\n");
  Write(kNvConfig, "");
  Write("/dev/block/bootdevice/by-name/reserve_exp1", "ABCDEFGHIJ");
  std::string nv, target;
  android::init::load_old_nv_key(&nv, &target);
  EXPECT_EQ(nv + "/" + target, "ABCDEFGH/target");
  EXPECT_THAT(Logged(), HasSubstr(" | E read nv_flag failed :/dev/block/platform/bootdevice/"));
}
