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
  const size_t number = setting["line"];
  if (number == 0) return content == value;
  const std::string line = Split(content, "\n").at(number - 1);
  return Has(line, name) && Has(line, value);
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
        EXPECT_FALSE(Has(setting["why"], "not taken"));
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
  EXPECT_EQ(RunTool("explain ro.x " + tree_.path()).out,
            "[ro.x]: unset: no file or rule sets it\n");
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
            (json{{"value", "phone"}, {"place", ""}, {"loader", ""}}));
  EXPECT_EQ(phone["left_out"], 1);
  ExpectRefusal(RunTool(diff), 2, "--against");
  ExpectRefusal(RunTool(diff + "--against /none"), 2, "/none");
  ExpectRefusal(RunTool(diff + "--set-b x"), 2, "--set x: not NAME=VALUE");
  ExpectRefusal(RunTool(diff + "/none"), 2, "/none: not a directory");
}

TEST_F(CommandTest, carriers_puts_every_key_in_force_and_leaves_the_tree_alone) {
  const std::string carrier = "mnt/vendor/my_carrier/";
  for (const std::string file :
       {"etc/build.nv", "etc/build.a-b", "etc/build.x", "properties/first/SimSwitchFirstTime/a",
        "properties/current/SimSwitchCurrentTime/a", "properties/channel/switchCarrierChannel/a"}) {
    tree_.Write(carrier + file + ".prop", "ro.a=" + file + "\n");
  }
  tree_.Write("odm/etc/flags.prop", "NV000001=nv\nNV000002=other\n");
  tree_.Write("odm/etc/nvmap.prop", "BOOT=first\n");
  tree_.Write("mnt/vendor/vemrareserve/system/ssv/sim_switch_first_file", "sys.sim.switch.first=z");
  const auto before = Describe(tree_.path());
  std::string found;
  const json shown = RunJson("carriers " + tree_.path())["carriers"];
  for (const json& key : shown) {
    found += key["kind"].get<std::string>() + " " + key["names"][0].get<std::string>();
    for (const json& property : key["differences"]) {
      if (property["name"] == "ro.a") found += ": " + property["b"]["value"].get<std::string>();
    }
    found += '\n';
  }
  EXPECT_EQ(found, R"(channel channel: properties/channel/switchCarrierChannel/a
current current: properties/current/SimSwitchCurrentTime/a
first first: properties/first/SimSwitchFirstTime/a
nv NV000001: etc/build.nv
nv NV000002
operator a-b: etc/build.a-b
ssv x: etc/build.x
vmcarrier BOOT: properties/first/SimSwitchFirstTime/a
)");
  EXPECT_EQ(Describe(tree_.path()), before);
}

}  // namespace
