#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "host/extprop/tests/run_tool.h"

namespace {

const std::string kVendor = "mnt/vendor/", kCarrier = kVendor + "my_carrier/";
const std::string kReserve = kVendor + "vemrareserve/", kSsv = kReserve + "system/ssv/";

// A device without a fault, for each test to spoil.
class CheckTest : public testing::Test {
 protected:
  CheckTest() {
    tree_.Write("odm/build.prop",
                "# comment\n\n \r\nro.brand=one \r\nimport /odm/etc/more.prop ro.*\n");
    tree_.Write("odm/etc/more.prop", "ro.more=\xC3\xA4\nimport /none.prop\n");
    for (const char* name : {"preload", "tavlen", "stock", "product", "region", "carrier",
                             "bigball", "company", "engineering", "manifest"}) {
      tree_.Write(kVendor + "my_" + name + "/build.prop", "ro.brand=" + std::string(name) + "\n");
    }
    std::filesystem::create_directory_symlink("mnt/vendor/my_company", tree_ / "my_company");
    tree_.Write(kCarrier + "etc/flags.prop", "NV KEY/1=nv-west\n");
    tree_.Write(kCarrier + "etc/nvmap.prop", "NV KEY/1=west\n");
    tree_.Write(kCarrier + "etc/build.nv-west.prop", "ro.nv=1\n");
    tree_.Write(kCarrier + "etc/build.eu-west.prop", "ro.operator=1\n");
    tree_.Write(kCarrier + "properties/west/SimSwitchFirstTime/a.prop", "ro.first=1\n");
    tree_.Write(kReserve + "radio/exp_operator_switch.config", "NV KEY/1;rest");
  }

  // What a check prints, its count of findings included and the tree's path left out.
  std::string Check(const std::string& options = "", int status = 0) {
    const auto before = Describe(tree_.path());
    const Outcome outcome = RunTool("check " + tree_.path() + " " + options);
    EXPECT_EQ(outcome.status, status) << outcome.err;
    EXPECT_EQ(Describe(tree_.path()), before);
    return "\n" + std::regex_replace(outcome.out + outcome.err, std::regex(tree_.path() + "/"), "");
  }

  TempTree tree_;
};

TEST_F(CheckTest, property_files) {
  tree_.Write(
      "odm/build.prop",
      "\xEF\xBB\xBFro.mark=1\nro.a b=1\nro.bytes=\xff\nno property\nro.twice=1\nro.twice=2\n"
      "import /none.prop\nimport /odm/${ro.none}.prop\nimport /odm/cycle.prop\n"
      "import /odm/link.prop\n" +
          std::string("ro.nul=1\0x\n", 11));
  tree_.Write("odm/cycle.prop", "import /odm/build.prop\n");
  std::filesystem::create_symlink("cycle.prop", tree_ / "odm/link.prop");
  // Read by no boot of this device, alone and in a place that is not known.
  tree_.Write(kCarrier + "etc/parts/deep.prop", "import /none.prop\n=nameless\n");
  tree_.Write(kCarrier + "properties/east/SimSwitchCurrentTime/a.prop",
              "ro.order=1\nimport /${sys.sim.switch.current}.prop\nimport /none.prop\n");
  tree_.Write(kCarrier + "properties/east/SimSwitchCurrentTime/b.prop", "ro.order=2\n");
  std::filesystem::remove(tree_ / kVendor + "my_stock/build.prop");
  EXPECT_EQ(Check("", 1), R"(
mnt/vendor/my_carrier/etc/parts/deep.prop:2: error: '' is no legal property name [illegal-name]
mnt/vendor/my_carrier/properties/east/SimSwitchCurrentTime/a.prop:3: warning: /none.prop does not exist [missing-import]
mnt/vendor/my_carrier/properties/east/SimSwitchCurrentTime/b.prop:1: warning: 'ro.order' is '1' in another file, and which is read last depends on the directory's order (mnt/vendor/my_carrier/properties/east/SimSwitchCurrentTime/a.prop:1) [directory-order]
mnt/vendor/my_stock/build.prop: warning: there is no such file, so no build properties are here [missing-partition]
odm/build.prop:1: error: the byte order mark \xef\xbb\xbf is read as the beginning of the line [byte-order-mark]
odm/build.prop:2: error: 'ro.a b' is no legal property name [illegal-name]
odm/build.prop:3: error: 'ro.bytes': Value is not a UTF8 encoded string [illegal-value]
odm/build.prop:4: warning: 'no property' is no property, comment or import [not-a-property]
odm/build.prop:6: warning: 'ro.twice' has another value already, which this one replaces (odm/build.prop:5) [duplicate-name]
odm/build.prop:7: warning: /none.prop does not exist [missing-import]
odm/build.prop:8: error: property 'ro.none' doesn't exist while expanding '/odm/${ro.none}.prop' [unexpandable-import]
odm/build.prop:11: error: nothing from the NUL byte to the end of the line is read [nul-byte]
odm/cycle.prop:1: error: /odm/build.prop is not imported: the file is being read already [refused-import]
odm/link.prop: error: it is a symbolic link, and links to such files are not followed (odm/build.prop:10) [unreadable-file]
8 errors, 6 warnings, 0 notes
)");
}

TEST_F(CheckTest, carriers_and_state_files) {
  tree_.Write(kCarrier + "etc/flags.prop", "TOO LONG/1=nv-west\nNV=nv-none\n");
  tree_.Write(kCarrier + "etc/nvmap.prop", "BC=nowhere\n");
  tree_.Write(kCarrier + "etc/build.EU-West.prop", "");
  tree_.Write(kCarrier + "properties/west/SimSwitchFirst/a.prop", "");
  tree_.Write(kSsv + "sim_action_file", "west\r\n");
  tree_.Write(kSsv + "sim_switch_current_file", "east");
  tree_.Write("data/system/customize/sim_switch/sim_switch_first_file", "west\n");
  EXPECT_EQ(Check("--set ro.boot.vmcarrier=ABC", 1), R"(
data/system/customize/sim_switch/sim_switch_first_file:1: warning: a bare key, which is ignored in this file [old-state-file]
mnt/vendor/my_carrier/etc/build.EU-West.prop: warning: no mapping in force leads to 'EU-West', and no operator properties do; only that very SSV key would [unreached-file]
mnt/vendor/my_carrier/etc/flags.prop:1: warning: 'TOO LONG/1' never matches: an NV key has eight bytes at most [long-nv-key]
mnt/vendor/my_carrier/etc/flags.prop:2: warning: no partition has etc/build.nv-none.prop [missing-target]
mnt/vendor/my_carrier/etc/nvmap.prop:1: warning: no partition has a directory properties/nowhere [missing-target]
mnt/vendor/my_carrier/properties/west/SimSwitchFirst: warning: it is never looked into for the key 'west' [unreachable-directory]
mnt/vendor/vemrareserve/radio/exp_operator_switch.config:1: warning: no partition's etc/flags.prop knows the key 'NV KEY/1' [unmapped-key]
mnt/vendor/vemrareserve/radio/exp_operator_switch.config:1: warning: no partition's etc/nvmap.prop knows the key 'NV KEY/1' [unmapped-key]
mnt/vendor/vemrareserve/system/ssv/sim_action_file:1: error: the line end is part of the key 'west\r\n', so nothing matches it [line-end-in-key]
mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file:1: warning: a bare key, the old format; the next boot rewrites it [old-state-file]
mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file:1: warning: no partition has a directory properties/east [unknown-carrier]
<properties>: warning: no partition's etc/nvmap.prop knows the key 'ABC' [unmapped-key]
1 error, 11 warnings, 0 notes
)");
}

TEST_F(CheckTest, cota_image_and_modules) {
  tree_.Write("data/cota/cota_mount_info.prop",
              "sys.cotaimg.verify=1\nsys.cota.load.properties=/data/cota/image\n");
  tree_.Write("data/cota/image/build.prop", "ro.brand one\n");
  tree_.Write("data/cota/image/properties/east/SimSwitchFirstTime/a.prop", "ro..dots=1\n");
  tree_.Write("data/cota/cota_module_info.prop",
              "mount_point=/data/cota/image\nmodule_type=media\nbind_point=/nowhere\n");
  tree_.Write("my_carrier/under", "");
  EXPECT_EQ(Check("", 1), R"(
data/cota/cota_module_info.prop:3: error: cannot bind /data/cota/image on /nowhere: there is no /nowhere [failed-bind]
data/cota/image/build.prop:1: warning: 'ro.brand one' is no property, comment or import [not-a-property]
data/cota/image/properties/east/SimSwitchFirstTime/a.prop:1: error: 'ro..dots' is no legal property name [illegal-name]
2 errors, 1 warning, 0 notes
)");
  tree_.Write("data/cota/cota_mount_info.prop", "fonts=/mnt/cota/fonts\nstray=/data/x\n");
  EXPECT_EQ(Check("--only module-directory", 1), R"(
data/cota/cota_mount_info.prop:2: error: '/data/x' lies where no module directory may be [module-directory]
1 error, 0 warnings, 0 notes; 3 left out
)");
}

TEST_F(CheckTest, tells_what_the_boot_makes_of_it) {
  // What the import sets is what line 3 replaces.
  tree_.Write("odm/build.prop", "ro.a=1\nimport /odm/set.prop\nro.a=1\n");
  tree_.Write("odm/set.prop", "ro.a=2\n");
  // Whatever the order, both files end alike.
  tree_.Write(kCarrier + "properties/west/SimSwitchFirstTime/b.prop",
              "import /odm/set.prop\nro.first=1\nro.a=1\n");
  tree_.Write(kCarrier + "properties/west/SimSwitchFirstTime/c.prop", "ro.a=1\n");
  // A later partition's line hides the one that leads to the file.
  tree_.Write("odm/etc/flags.prop", "NV KEY/1=old\n");
  tree_.Write("odm/etc/build.old.prop", "");
  // Without the property the whole text is a key, whatever it looks like.
  tree_.Write(kSsv + "sim_switch_first_file", "sys.sim.switch.current=west");
  // The module's directory is made before it is bound.
  tree_.Write("data/cota/cota_mount_info.prop", "fonts=/mnt/cota/fonts\n");
  tree_.Write("data/cota/cota_module_info.prop",
              "mount_point=/mnt/cota/fonts\nmodule_type=media\nbind_point=/my_carrier\n");
  tree_.Write("my_carrier/under", "");
  // A carrier's files and the reserve area are what they are behind links, too.
  std::filesystem::rename(tree_ / kCarrier + "etc", tree_ / kCarrier + "other");
  std::filesystem::create_directory_symlink("other", tree_ / kCarrier + "etc");
  std::filesystem::rename(tree_ / kReserve, tree_ / "reserve");
  std::filesystem::create_directory_symlink("/reserve", tree_ / "mnt/vendor/vemrareserve");
  EXPECT_EQ(Check(), R"(
odm/build.prop:3: warning: 'ro.a' has another value already, which this one replaces (odm/set.prop:1) [duplicate-name]
odm/etc/build.old.prop: warning: no mapping in force leads to 'old', and no operator properties do; only that very SSV key would [unreached-file]
reserve/system/ssv/sim_switch_first_file:1: warning: a bare key, the old format; the next boot rewrites it [old-state-file]
reserve/system/ssv/sim_switch_first_file:1: warning: no partition has a directory properties/sys.sim.switch.current=west [unknown-carrier]
0 errors, 4 warnings, 0 notes
)");
}

TEST_F(CheckTest, in_a_pipeline) {
  EXPECT_EQ(Check("--set ro.boot.vmcarrier=BC --fail-on note"),
            "\n0 errors, 0 warnings, 0 notes\n");
  EXPECT_TRUE(Has(Check("--only partition-override --fail-on note", 1), "0 warnings, 10 notes\n"));
  tree_.Write("odm/etc/more.prop", "no property\n");
  EXPECT_EQ(Check("--fail-on warning --ignore not-a-property"),
            "\n0 errors, 0 warnings, 0 notes; 1 left out\n");

  TempTree scratch;
  const std::string known = scratch / "known.json";
  RunTool("check " + tree_.path() + " --json >" + known);
  tree_.Write("odm/etc/more.prop", "# moved\nno property\nno property\n");
  EXPECT_EQ(Check("--fail-on warning --baseline " + known, 1),
            "\nodm/etc/more.prop:3: warning: 'no property' is no property, comment or import "
            "[not-a-property]\n0 errors, 1 warning, 0 notes; 1 left out\n");

  const std::string check = "check " + tree_.path();
  ExpectRefusal(RunTool(check + " --only no-such-id"), 2, "no-such-id");
  ExpectRefusal(RunTool(check + " --baseline /dev/null"), 2, "not what check --json prints");
}

}  // namespace
