#include "tests/device_test.h"

#include <sys/stat.h>

#include "VemraExtensionProperty/create_directory.h"
#include "VemraExtensionProperty/nv_ssv_carrier_key.h"

using namespace android::init;

namespace {

const char kNvConfig[] = "/mnt/vendor/vemrareserve/radio/exp_operator_switch.config";
const char kFirstBlock[] = "/dev/block/platform/bootdevice/by-name/reserve_exp1";
const char kSecondBlock[] = "/dev/block/bootdevice/by-name/reserve_exp1";
const char kSimAction[] = "/mnt/vendor/vemrareserve/system/ssv/sim_action_file";

}  // namespace

class CarrierKeyTest : public DeviceTest {
 protected:
  static std::string Translate(const std::string& key, const std::string& file) {
    std::string result = "stale";
    find_nv_ssv_target_key(key, file, &result);
    return result;
  }
};

TEST_F(CarrierKeyTest, highest_partition_that_maps_the_key_decides) {
  Write("/odm/etc/flags.prop", "K=odm\nL=odm\n");
  Write("/mnt/vendor/my_manifest/etc/flags.prop", "K=manifest\n");
  MakeDirectories("/mnt/vendor/my_region/etc/flags.prop");
  EXPECT_EQ(Translate("", "flags.prop"), "");
  EXPECT_EQ(Translate("K", "flags.prop"), "manifest");
  EXPECT_TRUE(TakeLog().empty()) << "a lower partition was read though a higher one decided";
  EXPECT_EQ(Translate("L", "flags.prop"), "odm");
  EXPECT_TRUE(LogHas(TakeLog(), "E map file load failed:/mnt/vendor/my_region/etc/flags.prop"));
  EXPECT_EQ(Translate("M", "flags.prop"), "");
  EXPECT_EQ(Translate(std::string("K\0\0x", 4), "flags.prop"), "manifest");
}

TEST_F(CarrierKeyTest, nv_key_is_the_first_eight_bytes_of_the_first_source_with_content) {
  Write("/odm/etc/flags.prop", "ABCDEFGH=target\nblk=short\n");
  Write(kSecondBlock, "blk");
  std::string nv, target;
  load_old_nv_key(&nv, &target);
  EXPECT_EQ(nv, "blk");
  EXPECT_EQ(target, "short");
  EXPECT_EQ(TakeLog(),
            (std::vector<std::string>{std::string("E read nv_flag failed :") + kNvConfig,
                                      std::string("E read nv_flag failed :") + kFirstBlock}));
  Write(kNvConfig, "");
  Write(kFirstBlock, "ABCDEFGHIJ");
  nv = "appended:", target = "";
  load_old_nv_key(&nv, &target);
  EXPECT_EQ(nv, "appended:ABCDEFGH");
  EXPECT_EQ(target, "target");
  EXPECT_EQ(TakeLog(), std::vector<std::string>{std::string("W Couldn't file") + kNvConfig});
}

TEST_F(CarrierKeyTest, nv_and_ssv_outputs_stay_where_no_source_has_a_key) {
  std::string nv = "old", target = "old", ssv = "old";
  load_old_nv_key(&nv, &target);
  EXPECT_EQ(nv + target, "oldold");
  TakeLog();
  read_old_ssv_key(&ssv);
  EXPECT_EQ(ssv, "old");
  EXPECT_TRUE(TakeLog().empty());
  MakeDirectories(kSimAction);
  read_old_ssv_key(&ssv);
  EXPECT_EQ(ssv, "old");
  EXPECT_EQ(TakeLog(),
            std::vector<std::string>{std::string("E read old ssv failed :") + kSimAction});
}

TEST_F(CarrierKeyTest, first_key_comes_from_boot_carrier_then_nv_then_ssv) {
  Write("/odm/etc/nvmap.prop", "boot=B\nnv=N\nssv=S\nssv\n=S2\n");
  const auto convert = [](std::string key, const char* nv, const char* ssv) {
    load_convert_first_key(&key, nv, ssv);
    return key;
  };
  SetProperty("ro.boot.vmcarrier", "boot");
  EXPECT_EQ(convert("", "nv", "ssv"), "B");
  EXPECT_EQ(convert("known", "nv", "ssv"), "known");
  SetProperty("ro.boot.vmcarrier", "unmapped");
  EXPECT_EQ(convert("", "nv", "ssv"), "N");
  EXPECT_EQ(convert("", "unmapped", "ssv"), "S");
  EXPECT_EQ(convert("", "unmapped", ""), "");
}

TEST_F(CarrierKeyTest, create_directory_makes_what_ends_in_a_separator) {
  EXPECT_EQ(createDirectory("/a/b/c"), 0);
  EXPECT_TRUE(Exists("/a/b"));
  EXPECT_FALSE(Exists("/a/b/c"));
  EXPECT_EQ(ModeAndOwner("/a").substr(0, 4), "0771");
  EXPECT_EQ(TakeLog(), (std::vector<std::string>{"I make dir: /a/", "I make dir: /a/b/"}));
  EXPECT_EQ(createDirectory("/a/b/c/"), 0);
  EXPECT_TRUE(Exists("/a/b/c"));
  EXPECT_EQ(createDirectory("/w\\x\\"), 0);
  EXPECT_TRUE(Exists("/w\\x\\"));
  const std::string deep = "/" + std::string(200, 'd') + "/" + std::string(200, 'e') + "/";
  EXPECT_EQ(createDirectory(deep), 0);
  EXPECT_TRUE(Exists(deep));

  TakeLog();
  EXPECT_EQ(createDirectory(""), 0);
  EXPECT_TRUE(TakeLog().empty());
  Write("/file", "");
  EXPECT_EQ(createDirectory("/new/"), 0);
  EXPECT_EQ(createDirectory("/file/x/y/"), -1);
}
