#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "host/extprop/tests/run_tool.h"
#include "host/sandbox/tests/temp_tree.h"

namespace {

const std::string kVendor = "mnt/vendor/";
const std::string kSsv = kVendor + "vemrareserve/system/ssv/";

class CheckTest : public testing::Test {
 protected:
  CheckTest() {
    tree_.Write("odm/build.prop", "# comment\n\n \r\nro.a=1\nimport /odm/more.prop\nro.b=x # y\n");
    tree_.Write("odm/more.prop", "ro.more=\xC3\xA4\nro.long=" + std::string(92, 'x') + "\n");
    for (const char* name :
         {"my_preload", "my_tavlen", "my_stock", "my_product", "my_region", "my_carrier",
          "my_bigball", "my_company", "my_engineering", "my_manifest"}) {
      tree_.Write(kVendor + name + "/build.prop", "");
    }
  }

  // The findings, one a line, with the tree's path and the messages left out.
  std::set<std::string> Check(const std::string& options = "", int expected_status = 1) {
    const auto before = Describe(tree_.path());
    const nlohmann::json result =
        RunJson("check '" + tree_.path() + "' " + options, "", expected_status);
    EXPECT_EQ(Describe(tree_.path()), before);
    std::set<std::string> found;
    for (const auto& finding : result["findings"]) {
      std::string path = finding["path"];
      if (path[0] == '/') path = path.substr(tree_.path().size() + 1);
      found.insert(path + ":" + std::to_string(finding["line"].get<int>()) + " " +
                   finding["id"].get<std::string>());
    }
    return found;
  }

  TempTree tree_;
};

using Findings = std::set<std::string>;

TEST_F(CheckTest, clean_tree_has_no_findings) {
  tree_.Write(kVendor + "my_carrier/etc/flags.prop", "NV KEY/1=x\n");
  tree_.Write(kVendor + "vemrareserve/radio/exp_operator_switch.config", "NV KEY/1;rest");
  tree_.Write(kVendor + "my_carrier/properties/k/SimSwitchFirstTime/a.prop", "ro.k=1\n");
  tree_.Write(kSsv + "sim_switch_first_file", "sys.sim.switch.first=k\n");
  tree_.Write("mnt/cota/m/build.prop", "");
  tree_.Write("my_carrier/under", "");
  tree_.Write("data/cota/cota_mount_info.prop",
              "sys.cotaimg.verify=1\nsys.cota.load.properties=/mnt/cota/m\n"
              "bind_point=/my_carrier\nro.build.cota.date=1\n");
  tree_.Write("data/cota/cota_module_info.prop",
              "mount_point=/mnt/cota/m\nmodule_type=media\nbind_point=/my_carrier\nro.m=1\n");
  EXPECT_EQ(Check("", 0), Findings());
}

TEST_F(CheckTest, lines_and_imports) {
  tree_.Write(kVendor + "my_stock/build.prop",
              "ro.a b=1\npersist.long=" + std::string(92, 'x') +
                  "\nro.bytes=\xff\nno property\nro.twice=1\nro.twice=1\n"
                  "import /none.prop\nimport /odm/${ro.none}.prop\n"
                  "import /stock/cycle.prop\nimport /other/link.prop\nro.a=2\n");
  tree_.Write(kVendor + "my_stock/cycle.prop", "import /mnt/vendor/my_stock/build.prop\n");
  tree_.Write("other/deep.prop", "import /other/deep.prop ro.*\n=nameless\n");
  std::filesystem::remove(tree_ / (kVendor + "my_tavlen/build.prop"));
  tree_.Write(kVendor + "my_region/unused.prop", "import /other/deep.prop\n");
  std::filesystem::create_symlink("/mnt/vendor/my_stock", tree_ / "stock");
  std::filesystem::create_symlink("/odm/build.prop", tree_ / "other/link.prop");
  const std::string stock = kVendor + "my_stock/build.prop:";
  EXPECT_EQ(
      Check(),
      (Findings{
          stock + "1 illegal-name", stock + "2 illegal-value", stock + "3 illegal-value",
          stock + "4 not-a-property", stock + "6 duplicate-name", stock + "7 missing-import",
          stock + "8 unexpandable-import", stock + "9 refused-import", stock + "10 unreadable-file",
          stock + "11 partition-override", kVendor + "my_stock/cycle.prop:1 refused-import",
          kVendor + "my_tavlen/build.prop:0 missing-partition", "other/deep.prop:1 refused-import",
          "other/deep.prop:2 illegal-name", "other/link.prop:0 unreadable-file"}));
}

TEST_F(CheckTest, carrier_state_and_keys) {
  tree_.Write(kVendor + "my_carrier/properties/k/SimSwitchCurrent/a.prop", "");
  tree_.Write(kVendor + "vemrareserve/radio/exp_operator_switch.config", "UNKNOWN1");
  tree_.Write(kSsv + "sim_action_file", "ssv");
  tree_.Write(kSsv + "sim_switch_current_file", "old\n");
  tree_.Write(kSsv + "sim_switch_common_prop_file", "sys.count=1 \n");
  const std::string nv = kVendor + "vemrareserve/radio/exp_operator_switch.config:1 ";
  EXPECT_EQ(Check("--set ro.boot.vmcarrier=BC", 0),
            (Findings{kVendor + "my_carrier/properties/k/SimSwitchCurrent:0 unreachable-directory",
                      nv + "unmapped-key", "<properties>:0 unmapped-key",
                      kSsv + "sim_action_file:1 unmapped-key",
                      kSsv + "sim_switch_current_file:1 old-state-file",
                      kSsv + "sim_switch_current_file:1 trailing-space",
                      kSsv + "sim_switch_common_prop_file:1 trailing-space"}));
}

TEST_F(CheckTest, cota_info_files) {
  tree_.Write("image/build.prop", "");
  tree_.Write("data/cota/cota_mount_info.prop",
              "sys.cotaimg.verify=1\nsys.cota.load.properties=/image\nbindpoint=/odm\n");
  tree_.Write("data/cota/cota_module_info.prop",
              "mount_point=/image\nmodule_type=media\nbind_point=/nowhere\n");
  EXPECT_EQ(Check(), (Findings{"data/cota/cota_mount_info.prop:3 unread-key",
                               "data/cota/cota_module_info.prop:3 failed-bind"}));

  tree_.Write("data/cota/cota_mount_info.prop", "fonts=/mnt/cota/fonts\n\nstray=/data/x\n");
  tree_.Write("data/cota/cota_module_info.prop",
              "mount_point=/image\nmoduletype=media\nbind_point=/odm\nsys.x=1\n");
  const std::string module = "data/cota/cota_module_info.prop:";
  EXPECT_EQ(Check(),
            (Findings{"data/cota/cota_mount_info.prop:3 module-directory", module + "1 unread-key",
                      module + "2 unread-key", module + "3 unread-key", module + "4 unread-key"}));
}

TEST_F(CheckTest, prints_as_compilers_do_and_tells_when_it_could_not_run) {
  tree_.Write(kVendor + "my_stock/build.prop", "a b\x01=1\n");
  const Outcome text = RunTool("check '" + tree_.path() + "/'");
  EXPECT_EQ(text.out, tree_ / (kVendor + "my_stock/build.prop:1: error: 'a b\\x01' is no legal "
                                         "property name [illegal-name]\n"));
  EXPECT_EQ(RunTool("check '" + (tree_ / "none") + "'").status, 2);
  EXPECT_EQ(RunTool("check '" + tree_.path() + "' --library /dev/null").status, 2);
}

}  // namespace
