#include <android-base/file.h>
#include <android-base/strings.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "host/extprop/tests/run_tool.h"

namespace {

using android::base::Split;
using nlohmann::json;

// Writes files that set few names to few values in many places, in every way that a boot reads and
// that a line may be written.
void FillAtRandom(const TempTree& tree, unsigned seed) {
  const std::vector<std::string> texts = Split(
      "ro.a=1|ro.a = 2 |ro.b=1|\tro.b=a b| ro.b==3|persist.a=1|persist.a=x=y\r| persist.a=2|"
      "#ro.a=4||import /i/0.prop|import /i/1.prop|import /i/1.prop ro.*|"
      "import /i/2.prop persist.a|import /i/${ro.n}.prop|import /i/${ro.none:-1}.prop *",
      "|");
  std::mt19937 random(seed);
  for (const std::string file :
       {"i/0", "i/1", "i/2", "odm/build", "odm/etc/build.a-b", "mnt/vendor/my_company/build",
        "mnt/vendor/my_company/etc/build.a-b", "odm/properties/k/SimSwitchFirstTime/x",
        "odm/properties/k/SimSwitchCurrentTime/x", "data/system/customize/data_common_prop_file",
        "data/system/customize/empty_appchannel_prop_file"}) {
    std::string lines = texts[random() % texts.size()];
    for (auto i = random() % 9; i-- > 0;) lines += "\n" + texts[random() % texts.size()];
    tree.Write(file + ".prop", lines);
  }
  std::filesystem::create_directory_symlink("mnt/vendor/my_company", tree / "my_company");
  tree.Write("mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file",
             seed % 2 == 0 ? "k" : "sys.sim.switch.current= k\n");
}

// Whether the place is a line that sets that, a file that is all of the value, or else no file.
bool IsThere(const json& setting, const TempTree& tree) {
  const std::string name = setting["name"], value = setting["value"], file = setting["file"];
  if (file.empty()) return !Has("ro.a ro.b persist.a sys.sim.switch.current", name);
  std::string content;
  android::base::ReadFileToString(tree.path() + file, &content);
  const std::string line = Split(content, "\n").at(setting["line"].get<size_t>() - 1);
  return content == value || (Has(line, name) && Has(line, value));
}

TEST(ExplainTest, agrees_with_boot_and_with_the_lines_of_random_trees) {
  for (unsigned seed = 0; seed < 15; ++seed) {
    TempTree tree;
    FillAtRandom(tree, seed);
    const std::string arguments =
        tree.path() + " --set sys.sim.switch.first=k --set ro.n=0 --set " +
        "persist.sys.vemra.operator.opta=A --set persist.sys.vemra.operator.optb=B --set " +
        "ro.vemra.image.my_company.date=2";
    json left = RunJson("boot " + arguments)["properties"];
    const json explained = RunJson("explain '*' " + arguments)["properties"];
    for (const json& property : explained) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ": " + property.dump(1));
      const std::string name = property["name"], value = property["value"];
      EXPECT_EQ(value, left.value(name, ""));
      left.erase(name);
      json winners = json::array();
      for (const json& setting : property["settings"]) {
        if (setting["won"]) winners.push_back(setting["value"]);
        EXPECT_NE(setting["won"], setting["why"] != "");
        EXPECT_FALSE(Has(setting["why"], "not handed over by")) << setting;
        EXPECT_TRUE(IsThere(setting, tree)) << setting;
      }
      EXPECT_EQ(winners, value.empty() ? json::array() : json::array({value}));
    }
    EXPECT_EQ(left, json::object()) << "explain knows no place for these";
  }
}

class CommandTest : public testing::Test {
 protected:
  CommandTest() {
    tree_.Write("odm/build.prop", "ro.a=odm\nimport /odm/more.prop ro.*\nro.a=again\n");
    tree_.Write("odm/more.prop", "ro.a=more\npersist.b=b\n");
    tree_.Write("my_company/build.prop", "ro.a=company\nsys.c=\n");
  }

  TempTree tree_;
};

TEST_F(CommandTest, explain_tells_why_each_place_lost) {
  EXPECT_EQ(RunTool("explain '*.[abx]' " + tree_.path() +
                    " --set ro.vemra.image.my_company.date=2 --set ro.a=0")
                .out,
            R"([persist.b]: unset
    /odm/more.prop:2  [b]  partitions, -  kept out by the filter of the import
[ro.a]: [again]
    rule: system property     [0]                                overridden by /odm/build.prop:3 (partitions)
    /odm/build.prop:1         [odm]      partitions, filled map  overridden by /odm/more.prop:1
    /odm/more.prop:1          [more]     partitions, filled map  overridden by /odm/build.prop:3
  * /odm/build.prop:3         [again]    partitions, filled map  wins
    /my_company/build.prop:1  [company]  persist, -              dropped by the company update: not in mode 1
)");
  ExpectRefusal(RunTool("explain ro.c " + tree_.path()), 1,
                "no file of the partitions, state file or rule sets ro.c; the nearest are ro.a");
  ExpectRefusal(RunTool("explain odm", "cd " + tree_.path() + " &&"), 2, "the NAME before it");
}

TEST_F(CommandTest, diff_names_the_cause_on_both_sides_and_tells_by_its_status) {
  TempTree other;
  other.Write("odm/build.prop", "ro.a=odm\nro.new=1\n");
  other.Write("getprop.txt", "[ro.a]: [phone]\n[init.svc.adbd]: [running]\n");
  const std::string diff = "diff " + tree_.path() + " ";
  EXPECT_EQ(RunTool(diff + tree_.path()).status, 0);
  EXPECT_EQ(RunTool(diff + other.path() + " --set-b x=1 --set-b y=").out,
            "[ro.a]\n  - [again]  /odm/build.prop:3 (partitions)\n"
            "  + [odm]  /odm/build.prop:1 (partitions)\n"
            "[ro.new]\n  - unset\n  + [1]  /odm/build.prop:2 (partitions)\n"
            "[x]\n  - unset\n  + [1]  rule: system property\n");
  const json phone = RunJson(diff + "--against " + other / "getprop.txt", "", 1);
  EXPECT_EQ(phone["differences"][0]["b"],
            (json{{"value", "phone"}, {"place", ""}, {"loader", ""}, {"note", ""}}));
  EXPECT_EQ(phone["left_out"], 1);
  ExpectRefusal(RunTool(diff), 2, "--against");
  ExpectRefusal(RunTool(diff + "--against /none"), 2, "/none");
  ExpectRefusal(RunTool(diff + "--set-b x"), 2, "--set x: not NAME=VALUE");
  ExpectRefusal(RunTool(diff + "/none"), 2, "/none: not a directory");
}

// A device whose carrier keys come from everywhere, converted in this boot.
class CarrierTest : public testing::Test {
 protected:
  CarrierTest() {
    tree_.Write("mnt/vendor/vemrareserve/radio/exp_operator_switch.config", "EUQ10007;rev=2");
    tree_.Write("mnt/vendor/my_carrier/etc/flags.prop", "A=b\nEUQ10007=nv-westtel\n");
    tree_.Write("odm/etc/nvmap.prop", "EUQ10007=westtel\n");
    tree_.Write("odm/etc/build.nv-westtel.prop", "ro.nv=1\n");
    tree_.Write("odm/etc/build.nv-other.prop", "ro.nv=2\n");
    tree_.Write("odm/properties/westtel/SimSwitchFirstTime/a.prop", "ro.first=a\nro.same=1\n");
    tree_.Write("odm/properties/westtel/SimSwitchFirstTime/b.prop", "ro.first=b\nro.same=1\n");
    tree_.Write("odm/properties/westtel/lost.prop", "ro.first=lost\n");
    tree_.Write("odm/lost.prop", "import /odm/build.prop\nro.vemra.image.my_carrier.type=lost\n");
    tree_.Write("odm/build.prop",
                "ro.vemra.image.my_carrier.type=x\nbad..name=1\npersist.kept=partition\n");
    tree_.Write("data/cota/cota_module_info.prop", "mount_point=/data/image\nro.info=1\n");
    tree_.Write("data/image/build.prop", "ro.nv=image\n");
  }

  std::string Explain(const std::string& name) {
    const Outcome outcome =
        RunTool("explain " + name + " " + tree_.path() + " --set persist.kept=user");
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return outcome.out;
  }

  TempTree tree_;
};

TEST_F(CarrierTest, the_chain_of_keys_leads_to_what_the_device_has) {
  EXPECT_EQ(Explain("ro.nv"), R"([ro.nv]: [1]
  * /odm/etc/build.nv-westtel.prop:1  [1]      persist, mode 0  wins
        for nv key EUQ10007 -> nv-westtel (/mnt/vendor/my_carrier/etc/flags.prop:2), from /mnt/vendor/vemrareserve/radio/exp_operator_switch.config
    /odm/etc/build.nv-other.prop:1    [2]      -                not read: for nv, ssv or operator key nv-other; this boot has nv-westtel
    /data/image/build.prop:1          [image]  -                not read: no step of this boot binds the COTA image or module /data/image
)");
  EXPECT_EQ(Explain("sys.sim.switch.first"), R"([sys.sim.switch.first]: [westtel]
  * /odm/etc/nvmap.prop:1  [westtel]  persist, mode 0  wins
        converted in this boot
        from nv key: [EUQ10007]  /mnt/vendor/vemrareserve/radio/exp_operator_switch.config
)");
  EXPECT_TRUE(
      Has(Explain("ro.same"), "for first key westtel, from /odm/etc/nvmap.prop:1 by nv key"));
}

TEST_F(CarrierTest, nothing_is_said_that_is_not_so) {
  const std::string first = Explain("ro.first");
  EXPECT_TRUE(Has(first, "mode 0  depends on the directory's order: ")) << first;
  EXPECT_FALSE(Has(first, "wins") || Has(first, "overridden")) << first;
  EXPECT_TRUE(Has(first, "[lost]  -                not read: no key reaches")) << first;
  EXPECT_FALSE(Has(Explain("ro.same"), "order"));
  EXPECT_EQ(Explain("ro.vemra.cust.ver"), R"([ro.vemra.cust.ver]: [1]
  * rule: default customisation version  [1]  partitions, filled map  wins
        from ro.vemra.image.my_carrier.type: [x]  /odm/build.prop:1
)");
  EXPECT_TRUE(Has(Explain("ro.vemra.image.my_carrier.type"), "not read: no file that was read"));
  EXPECT_TRUE(Has(Explain("bad..name"),
                  "]: unset\n    /odm/build.prop:2  [1]  partitions, filled map  refused:"));
  EXPECT_TRUE(Has(Explain("persist.kept"), "overridden by rule: stored property"));
  // Another carrier's file is the only one to lead to it.
  tree_.Write("odm/etc/build.nv-other.prop", "ro.nv=2\nimport /odm/etc/nv.cfg\n");
  tree_.Write("odm/etc/nv.cfg", "ro.cfg=1\n");
  EXPECT_TRUE(Has(Explain("ro.cfg"), "imports it, as /odm/etc/build.nv-other.prop:2 does"));
  // Nor is a file that this boot writes for the choice.
  const std::string first_key = "sys.sim.switch.first --carrier first=westtel";
  EXPECT_TRUE(Has(Explain(first_key), "  * --carrier first=westtel  [westtel]  persist, mode 0"));
  EXPECT_TRUE(Has(Explain("ro.first --call partitions"), "no step of this boot looks for such"));
  const std::string all = Explain("'*'");
  EXPECT_FALSE(Has(all, "EUQ10007]:") || Has(all, "[mount_point")) << all;
}

}  // namespace
