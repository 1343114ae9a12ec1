#include <android-base/file.h>
#include <android-base/strings.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "host/extprop/tests/run_tool.h"
#include "host/sandbox/tests/temp_tree.h"

namespace {

using nlohmann::json;

// A device whose files set few names to few values in many places, in every way that a boot reads.
class RandomDevice {
 public:
  explicit RandomDevice(unsigned seed) : random_(seed) {
    for (const std::string root : {"odm/", "mnt/vendor/my_carrier/", "mnt/vendor/my_company/"}) {
      for (const std::string name :
           {"build", "etc/build.a-b", "properties/k/SimSwitchFirstTime/x",
            "properties/k/SimSwitchCurrentTime/x", "properties/k/SimSwitchCurrentTime/y"}) {
        if (Roll(3) != 0) tree_.Write(root + name + ".prop", Lines());
      }
    }
    for (const std::string name :
         {"i/0", "i/1", "i/2", "data/system/customize/data_common_prop_file",
          "data/system/customize/empty_appchannel_prop_file"}) {
      tree_.Write(name + ".prop", Lines());
    }
    std::filesystem::create_directory_symlink("mnt/vendor/my_company", tree_ / "my_company");
    tree_.Write("mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file",
                Roll(2) == 0 ? "k" : "sys.sim.switch.current= k\n");
  }

  std::string Arguments() const {
    return "'" + tree_.path() + "' --set sys.sim.switch.first=k --set ro.n=0 --set " +
           "persist.sys.vemra.operator.opta=A --set persist.sys.vemra.operator.optb=B --set " +
           "ro.vemra.image.my_company.date=2";
  }

  // That line as NAME=VALUE without white space; a line 0 is all of the file and a value alone.
  std::string Said(const json& setting) const {
    std::string content;
    android::base::ReadFileToString(tree_.path() + setting["file"].get<std::string>(), &content);
    const size_t number = setting["line"];
    if (number == 0) return setting["name"].get<std::string>() + "=" + content;
    const std::string line = android::base::Split(content, "\n").at(number - 1);
    return std::regex_replace(line, std::regex("^\\s*([^=]*\\S)\\s*=\\s*(.*\\S)\\s*$"), "$1=$2");
  }

 private:
  unsigned Roll(size_t sides) { return static_cast<unsigned>(random_() % sides); }

  std::string Any(const std::vector<std::string>& texts) { return texts[Roll(texts.size())]; }

  std::string Lines() {
    std::string lines;
    for (unsigned i = Roll(9) + 1; i-- > 0;) {
      lines += Roll(4) == 0 ? "import /i/" + Any({"0", "1", "2", "${ro.n}", "${ro.none:-1}"}) +
                                  ".prop" + Any({"", "", " ro.*", " persist.a", " *"})
                            : Any({"", " ", "\t", "#"}) + Any({"ro.a", "ro.b", "persist.a"}) +
                                  Any({"=", " = ", "=="}) + Any({"1", "2", "a b", "x=y", "3 \r"});
      lines += i == 0 && Roll(2) == 0 ? "" : "\n";
    }
    return lines;
  }

  std::mt19937 random_;
  TempTree tree_;
};

TEST(ExplainTest, agrees_with_boot_and_with_the_lines_of_random_trees) {
  const std::set<std::string> from_lines = {"ro.a", "ro.b", "persist.a", "sys.sim.switch.current"};
  for (unsigned seed = 0; seed < 15; ++seed) {
    const RandomDevice device(seed);
    json left = RunJson("boot " + device.Arguments())["properties"];
    const json explained = RunJson("explain '*' " + device.Arguments())["properties"];
    for (const json& property : explained) {
      const std::string name = property["name"];
      SCOPED_TRACE("seed " + std::to_string(seed) + ": " + property.dump(1));
      EXPECT_EQ(property["value"], left.value(name, ""));
      left.erase(name);
      size_t winners = 0;
      for (const json& setting : property["settings"]) {
        winners += setting["won"] ? 1 : 0;
        EXPECT_NE(setting["won"].get<bool>(), setting["why"] != "");
        EXPECT_EQ(setting["why"].get<std::string>().find("not taken"), std::string::npos);
        EXPECT_TRUE(!setting["won"] || setting["value"] == property["value"]);
        if (setting["file"] == "") {
          EXPECT_EQ(from_lines.count(name), 0u);
        } else {
          EXPECT_EQ(device.Said(setting), name + "=" + setting["value"].get<std::string>());
        }
      }
      EXPECT_EQ(winners, property["value"] == "" ? 0u : 1u);
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

  std::string Tree() const { return " '" + tree_.path() + "' "; }

  TempTree tree_;
};

TEST_F(CommandTest, explain_tells_why_each_place_lost) {
  const std::string date = "--set ro.vemra.image.my_company.date=2 --set ro.a=0";
  EXPECT_EQ(RunTool("explain '*.[abx]'" + Tree() + date).out, R"([persist.b]: unset
    /odm/more.prop:2  [b]  partitions, -  kept out by the filter of the import
[ro.a]: [again]
    rule: system property     [0]                                overridden by /odm/build.prop:3 (partitions)
    /odm/build.prop:1         [odm]      partitions, filled map  overridden by /odm/more.prop:1
    /odm/more.prop:1          [more]     partitions, filled map  overridden by /odm/build.prop:3
  * /odm/build.prop:3         [again]    partitions, filled map  wins
    /my_company/build.prop:1  [company]  persist, -              dropped by the company update: not in mode 1
)");
  EXPECT_EQ(RunTool("explain ro.x" + Tree()).out, "[ro.x]: unset: no file or rule sets it\n");
}

TEST_F(CommandTest, diff_names_the_cause_on_both_sides_and_tells_by_its_status) {
  EXPECT_EQ(RunTool("diff" + Tree() + Tree()).status, 0);
  TempTree other;
  other.Write("odm/build.prop", "ro.a=odm\nro.new=1\n");
  other.Write("getprop.txt", "[ro.a]: [phone]\n[init.svc.adbd]: [running]\n");
  EXPECT_EQ(RunTool("diff" + Tree() + "'" + other.path() + "' --set-b x=1 --set-b y=").out,
            "[ro.a]\n  - [again]  /odm/build.prop:3 (partitions)\n"
            "  + [odm]  /odm/build.prop:1 (partitions)\n"
            "[ro.new]\n  - unset\n  + [1]  /odm/build.prop:2 (partitions)\n"
            "[x]\n  - unset\n  + [1]  rule: system property\n");
  const json phone =
      RunJson("diff" + Tree() + "--against '" + (other / "getprop.txt") + "'", "", 1);
  EXPECT_EQ(phone["differences"][0]["b"],
            (json{{"value", "phone"}, {"place", ""}, {"loader", ""}}));
  EXPECT_EQ(phone["left_out"], 1);
  for (const std::string bad : {"", "--against /none", "--set-b x", "/none"}) {
    const Outcome outcome = RunTool("diff" + Tree() + bad);
    EXPECT_EQ(outcome.status, 2) << bad;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  }
}

TEST_F(CommandTest, carriers_puts_every_key_in_force_and_leaves_the_tree_alone) {
  for (const auto& [name, value] :
       std::map<std::string, std::string>{{"etc/build.nv", "nv"},
                                          {"etc/build.a-b", "operator"},
                                          {"etc/build.x", "ssv"},
                                          {"properties/k/SimSwitchFirstTime/a", "first"},
                                          {"properties/c/SimSwitchCurrentTime/a", "current"},
                                          {"properties/s/switchCarrierChannel/a", "channel"}}) {
    tree_.Write("mnt/vendor/my_carrier/" + name + ".prop", "ro.a=" + value + "\n");
  }
  tree_.Write("odm/etc/flags.prop", "NV000001=nv\nNV000002=other\n");
  tree_.Write("odm/etc/nvmap.prop", "BOOT=k\n");
  tree_.Write("mnt/vendor/vemrareserve/system/ssv/sim_switch_first_file", "sys.sim.switch.first=z");
  const auto before = Describe(tree_.path());
  const json shown = RunJson("carriers" + Tree());
  std::string found;
  for (const json& key : shown["carriers"]) {
    found += key["kind"].get<std::string>() + " " + key["names"][0].get<std::string>();
    for (const json& property : key["differences"]) {
      if (property["name"] == "ro.a") found += ": " + property["b"]["value"].get<std::string>();
    }
    found += '\n';
  }
  EXPECT_EQ(found,
            "channel s: channel\ncurrent c: current\nfirst k: first\nnv NV000001: nv\n"
            "nv NV000002\noperator a-b: operator\nssv x: ssv\nvmcarrier BOOT: first\n");
  EXPECT_EQ(Describe(tree_.path()), before);
}

}  // namespace
