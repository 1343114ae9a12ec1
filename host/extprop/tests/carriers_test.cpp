#include <android-base/strings.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "host/extprop/tests/run_tool.h"

namespace {

using nlohmann::json;

const std::string kCarrier = "mnt/vendor/my_carrier/";
const std::string kSsv = "mnt/vendor/vemrareserve/system/ssv/";
const std::string kData = "data/system/customize/";

class CarriersTest : public testing::Test {
 protected:
  // Every carrier-keyed file sets ro.a to its own path; the device is set up for carrier z.
  CarriersTest() {
    for (const std::string file :
         {"etc/build.nv", "etc/build.a-b", "etc/build.x", "etc/build.A-b",
          "properties/first/SimSwitchFirstTime/a", "properties/second/SimSwitchFirstTime/a",
          "properties/now/SimSwitchCurrentTime/a", "properties/channel/switchCarrierChannel/a"}) {
      tree_.Write(kCarrier + file + ".prop", "ro.a=" + file + "\n");
    }
    tree_.Write("odm/etc/flags.prop", "NV000001=nv\nNV000002=nv\nNV0000030=nv\n");
    tree_.Write("odm/etc/nvmap.prop", "NV000001=first\nNV000002=second\nBOOT=z\nx=z\n");
    tree_.Write(kCarrier + "etc/nvmap.prop", "BOOT=first\n");
    tree_.Write(kSsv + "sim_switch_current_file", "z");
    tree_.Write(kSsv + "sim_switch_convert_file", "sys.sim.switch.convert= true\n");
    tree_.Write(kSsv + "sim_action_file", "z");
    tree_.Write(kSsv + "force_connect_internet_prop_file", "persist.sys.channel.info=z\n");
    tree_.Write(kData + "data_common_prop_file.prop", "persist.sys.channel.info=z");
    tree_.Write(kData + "sim_switch/sim_switch_current_file", "sys.sim.switch.current=z\nro.b=b");
    tree_.Write("mnt/vendor/vemrareserve/system/flag/flashback.cfg", "sys.sim.switch.first=z\n");
  }

  std::string ValueWith(const std::string& arguments) {
    return RunJson("boot " + tree_.path() + " " + arguments)["properties"].value("ro.a", "");
  }

  TempTree tree_;
};

TEST_F(CarriersTest, puts_every_key_in_force_and_leaves_the_tree_alone) {
  const auto before = Describe(tree_.path());
  std::string found;
  const json shown = RunJson("carriers " + tree_.path())["carriers"];
  for (const json& key : shown) {
    found += key.value("kind", "") + " " + key.value("name", "");
    for (const json& property : key["differences"]) {
      EXPECT_NE(property["name"], "ro.b") << "taken away without need";
      if (property["name"] == "ro.a") found += ": " + property["b"].value("value", "");
    }
    found += key["never"] == "" ? "\n" : ", never\n";
  }
  EXPECT_EQ(found, R"(first first: properties/first/SimSwitchFirstTime/a
first second: properties/second/SimSwitchFirstTime/a
current now: properties/now/SimSwitchCurrentTime/a
channel channel: properties/channel/switchCarrierChannel/a
nv NV000001: etc/build.nv
nv NV000002: etc/build.nv
nv NV0000030, never
ssv x: etc/build.x
operator a-b: etc/build.a-b
vmcarrier BOOT: properties/first/SimSwitchFirstTime/a
)");
  EXPECT_EQ(Describe(tree_.path()), before);
}

TEST_F(CarriersTest, choices_work_together_and_doubtful_ones_are_told) {
  const std::string now = "properties/now/SimSwitchCurrentTime/a";
  const std::string second = "properties/second/SimSwitchFirstTime/a";
  EXPECT_EQ(ValueWith("--carrier nv=NV000001 --carrier current=now"), now);
  EXPECT_EQ(ValueWith("--carrier first=second --carrier ssv=x"), second);
  EXPECT_EQ(ValueWith("--carrier first=second --call simswitch=simSwitchFirst"), second);
  // The first key comes from an NV key only on a device that has not converted one yet.
  std::filesystem::remove_all(tree_ / "mnt/vendor/vemrareserve");
  EXPECT_EQ(ValueWith("--carrier nv=NV000002"), second);

  const std::string boot = "boot " + tree_.path() + " --carrier ";
  EXPECT_EQ(RunTool(boot + "operator=A-B").err, "");
  EXPECT_EQ(RunTool(boot + "vmcarrier=bot").err,
            "extprop: warning: --carrier vmcarrier=bot: nothing on the device knows this key; the "
            "nearest are BOOT\n");
  EXPECT_TRUE(Has(RunTool(boot + "channel=first").err, "as channel, but as first"));
  EXPECT_TRUE(Has(RunTool(boot + "nv=NV0000010").err, "only the first eight bytes"));
  ExpectRefusal(RunTool(boot + "sim=x"), 2, "not KIND=KEY");
  ExpectRefusal(RunTool(boot + "first=first --carrier first=second"), 2, "only one first");
}

TEST_F(CarriersTest, groups_what_differs_between_two_builds) {
  TempTree next;
  std::filesystem::copy(tree_.path(), next.path(), std::filesystem::copy_options::recursive);
  const std::string carriers = "carriers --stat " + tree_.path() + " " + next.path();
  EXPECT_EQ(RunTool(carriers).status, 0);
  next.Write("odm/build.prop", "ro.everybody=1\n");
  next.Write(kCarrier + "etc/build.nv.prop", "ro.a=next\n");
  next.Write(kCarrier + "properties/new/switchCarrierChannel/a.prop", "");
  const Outcome outcome = RunTool(carriers);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, R"(every carrier: 1
nv NV000001, nv NV000002: 1
only in B: channel new
keys in both builds: 9, with differences: 2 in 1 group; only in A: 0, only in B: 1
)");
}

TEST_F(CarriersTest, prints_as_it_goes_and_leaves_no_process_when_killed) {
  const std::string file = tree_ / kCarrier + "properties/now/SimSwitchCurrentTime/a.prop";
  std::filesystem::remove(file);
  ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
  // The last process that has the pipe ends it; the boot that reads the FIFO would wait for long.
  const std::string killed = "timeout --foreground -s KILL 3 " EXTPROP " carriers " + tree_.path();
  EXPECT_EQ(system((killed + " | timeout 9 cat >" + tree_ / "out").c_str()), 0);
  std::string out;
  android::base::ReadFileToString(tree_ / "out", &out);
  EXPECT_TRUE(Has(out, "first second") && !Has(out, "current now")) << out;
}

TEST(LargeDeviceTest, many_boots_at_once_tell_what_single_boots_do) {
  TempTree scratch;
  ASSERT_EQ(system((MAKE_LARGE_DEVICE " " + scratch.path() + " 6 200").c_str()), 0);
  const std::string device = (scratch / "root") + " --props " + (scratch / "device.prop");
  const json by_default = RunJson("boot " + device)["properties"];
  const std::string lines = RunTool("carriers --json-lines -j3 " + device).out;
  EXPECT_EQ(RunTool("carriers --json-lines -j1 " + device).out, lines);
  const auto printed = android::base::Split(android::base::Trim(lines), "\n");
  EXPECT_EQ(printed.size(), 5u * 6 + 2);
  for (const std::string& line : printed) {
    const json key = json::parse(line);
    std::string boot = "boot " + device;
    boot.append(" --carrier ").append(key.value("kind", "")).append("=").append(key["name"]);
    json with_key = RunJson(boot)["properties"];
    for (const json& found : key["differences"]) {
      EXPECT_EQ(with_key.value(found.value("name", ""), ""), found["b"]["value"]) << boot;
      with_key[found.value("name", "")] = found["a"]["value"];
    }
    // What is left is what chooses the carrier, or was unset.
    for (const json& change : json::diff(by_default, with_key)) {
      const std::string path = change["path"];
      EXPECT_TRUE(change["value"] == "" || Has(path, "operator.opt") || Has(path, "vmcarrier"))
          << boot << change;
    }
  }
}

}  // namespace
