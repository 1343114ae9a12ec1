#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>

#include "host/extprop/tests/run_tool.h"

namespace {

const std::string kStock = "mnt/vendor/my_stock/", kCarrier = "mnt/vendor/my_carrier/";
const std::string kReserve = "mnt/vendor/vemrareserve/", kSsv = kReserve + "system/ssv/";
const std::string kMountInfo = "data/cota/cota_mount_info.prop";
const std::string kModuleInfo = "data/cota/cota_module_info.prop";

class CheckTest : public testing::Test {
 protected:
  // The findings without their messages, a file in each line; but for the partitions left out here.
  std::string Check(const std::string& options, int expected_status) {
    const auto before = Describe(tree_.path());
    std::string found, last_path;
    const auto result = RunJson("check " + tree_.path() + " " + options, "", expected_status);
    for (const auto& finding : result["findings"]) {
      const std::string path = finding["path"], id = finding["id"];
      if (id == "missing-partition" && path != tree_ / kStock + "build.prop") continue;
      if (path != last_path) found += "\n" + path;
      last_path = path;
      found += " " + finding["line"].dump() + ":" + id;
    }
    EXPECT_EQ(Describe(tree_.path()), before);
    return std::regex_replace(found, std::regex("\n" + tree_.path() + "/"), "\n");
  }

  TempTree tree_;
};

TEST_F(CheckTest, lines_and_imports) {
  tree_.Write("odm/build.prop", "# comment\n\n \r\nro.a=1\nimport /odm/more.prop\nro.b=x # y\n");
  tree_.Write("odm/more.prop", "ro.more=\xC3\xA4\nro.long=" + std::string(92, 'x') + "\n");
  tree_.Write(kCarrier + "build.prop",
              "ro.a b=1\npersist.long=" + std::string(92, 'x') +
                  "\nro.bytes=\xff\nno property\nro.twice=1\nro.twice=1\n"
                  "import /none.prop\nimport /odm/${ro.none}.prop\n"
                  "import /carrier/cycle.prop\nimport /other/link.prop\nro.a=2\n");
  tree_.Write(kCarrier + "cycle.prop", "import /mnt/vendor/my_carrier/build.prop\n");
  tree_.Write(kCarrier + "unused.prop", "import /other/deep.prop\n");
  tree_.Write("other/deep.prop", "import /other/deep.prop ro.*\n=nameless\n");
  std::filesystem::create_symlink("/mnt/vendor/my_carrier", tree_ / "carrier");
  std::filesystem::create_symlink("/odm/build.prop", tree_ / "other/link.prop");
  EXPECT_EQ(Check("", 1), R"(
mnt/vendor/my_carrier/build.prop 1:illegal-name 2:illegal-value 3:illegal-value 4:not-a-property)"
                          R"( 6:duplicate-name 7:missing-import 8:unexpandable-import)"
                          R"( 9:refused-import 10:unreadable-file 11:partition-override
mnt/vendor/my_carrier/cycle.prop 1:refused-import
mnt/vendor/my_stock/build.prop 0:missing-partition
other/deep.prop 1:refused-import 2:illegal-name
other/link.prop 0:unreadable-file)");
}

TEST_F(CheckTest, carrier_keys_and_state_files) {
  tree_.Write(kStock + "build.prop", "");
  tree_.Write(kCarrier + "etc/flags.prop", "NV KEY/1=x\n");
  tree_.Write(kReserve + "radio/exp_operator_switch.config", "NV KEY/1;rest");
  tree_.Write(kCarrier + "properties/k/SimSwitchFirstTime/a.prop", "ro.k=1\n");
  tree_.Write(kSsv + "sim_switch_first_file", "sys.sim.switch.first=k\n");
  EXPECT_EQ(Check("--set ro.boot.vmcarrier=BC", 0), "");

  tree_.Write(kCarrier + "properties/k/SimSwitchCurrent/a.prop", "");
  tree_.Write(kReserve + "radio/exp_operator_switch.config", "UNKNOWN1");
  tree_.Write(kSsv + "sim_action_file", "ssv");
  tree_.Write(kSsv + "sim_switch_current_file", "old\n");
  tree_.Write(kSsv + "sim_switch_common_prop_file", "sys.count=1 \n");
  std::filesystem::remove(tree_ / kSsv + "sim_switch_first_file");
  EXPECT_EQ(Check("--set ro.boot.vmcarrier=BC", 0), R"(
mnt/vendor/my_carrier/properties/k/SimSwitchCurrent 0:unreachable-directory
mnt/vendor/vemrareserve/radio/exp_operator_switch.config 1:unmapped-key 1:unmapped-key
mnt/vendor/vemrareserve/system/ssv/sim_action_file 1:unmapped-key
mnt/vendor/vemrareserve/system/ssv/sim_switch_common_prop_file 1:trailing-space
mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file 1:old-state-file 1:trailing-space
<properties> 0:unmapped-key)");
}

TEST_F(CheckTest, cota_info_files) {
  tree_.Write(kStock + "build.prop", "");
  tree_.Write("mnt/cota/m/build.prop", "");
  tree_.Write("my_carrier/under", "");
  tree_.Write(kMountInfo,
              "sys.cotaimg.verify=1\nsys.cota.load.properties=/mnt/cota/m\n"
              "bind_point=/my_carrier\nro.build.cota.date=1\nbindpoint=/odm\n");
  tree_.Write(kModuleInfo,
              "mount_point=/mnt/cota/m\nmodule_type=media\nbind_point=/my_carrier\nro.m=1\n");
  EXPECT_EQ(Check("", 0), "\n" + kMountInfo + " 5:unread-key");

  tree_.Write(kMountInfo, "fonts=/mnt/cota/fonts\n\nstray=/data/x\n");
  tree_.Write(kModuleInfo, "mount_point=/mnt\nmodule_type=media\nbind_point=/nowhere\n");
  EXPECT_EQ(Check("", 1),
            "\n" + kModuleInfo + " 3:failed-bind\n" + kMountInfo + " 3:module-directory");
  tree_.Write(kModuleInfo, "mount_point=/mnt\nmoduletype=media\nbind_point=/my_carrier\n");
  EXPECT_EQ(Check("", 1), "\n" + kModuleInfo + " 1:unread-key 2:unread-key 3:unread-key\n" +
                              kMountInfo + " 3:module-directory");
}

TEST_F(CheckTest, prints_as_compilers_do_and_tells_when_it_could_not_run) {
  tree_.Write(kStock + "build.prop", "a b\x01=1\n");
  EXPECT_EQ(RunTool("check " + tree_.path() + "/ | grep -v missing-partition").out,
            tree_ / kStock +
                "build.prop:1: error: 'a b\\x01' is no legal property name "
                "[illegal-name]\n");
  ExpectRefusal(RunTool("check " + tree_ / "none"), 2, "none: not a directory");
  ExpectRefusal(RunTool("check " + tree_.path() + " --library /dev/null"), 2, "cannot load");
}

}  // namespace
