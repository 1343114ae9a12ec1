#include <android-base/file.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "host/sandbox/tests/temp_tree.h"

namespace {

using nlohmann::json;

constexpr const char* kForceState =
    "/mnt/vendor/vemrareserve/system/ssv/force_connect_internet_prop_file";

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs the tool through the shell, with `before` in front of it.
Outcome RunTool(const std::string& arguments, const std::string& before = "") {
  TempTree scratch;
  const std::string command = before + " " + EXTPROP + " " + arguments + " >'" + (scratch / "out") +
                              "' 2>'" + (scratch / "err") + "'";
  Outcome outcome;
  const int status = system(command.c_str());
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  android::base::ReadFileToString(scratch / "out", &outcome.out);
  android::base::ReadFileToString(scratch / "err", &outcome.err);
  return outcome;
}

json Record(const std::string& arguments, const std::string& before = "") {
  const Outcome outcome = RunTool(arguments + " --json", before);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  return json::parse(outcome.out, nullptr, false);
}

// The events of that kind in one step, or in all.
std::vector<json> Events(const json& record, const std::string& kind,
                         const std::string& step = "") {
  std::vector<json> events;
  for (const json& taken : record["steps"]) {
    if (!step.empty() && taken["name"] != step) continue;
    for (const json& event : taken["events"]) {
      if (event["event"] == kind) events.push_back(event);
    }
  }
  return events;
}

std::set<std::string> Names(const std::string& tree) {
  std::set<std::string> names;
  for (const auto& [name, about] : Describe(tree)) names.insert(name);
  return names;
}

std::vector<std::string> Steps(const json& record) {
  std::vector<std::string> steps;
  for (const json& step : record["steps"]) {
    const auto argument = step["argument"].get<std::string>();
    steps.push_back((step["post"] ? "post " : "") + step["name"].get<std::string>() +
                    (argument.empty() ? "" : "=" + argument));
  }
  return steps;
}

class BootTest : public testing::Test {
 protected:
  BootTest() {
    tree_.Write("odm/build.prop", "ro.shared=odm\nro.odm=\tspaced value \n");
    tree_.Write("mnt/vendor/my_manifest/build.prop", "ro.shared=manifest\n");
    tree_.Write(std::string(kForceState).substr(1) + ".sibling", "");
    tree_.Write("data/cota/cota_module_info.prop",
                "mount_point=/module\nmodule_type=file\nbind_point=/bound\nsys.module=ready\n");
    tree_.Write("module/in_module", "");
    tree_.Write("bound/under_module", "");
  }

  std::string Boot(const std::string& options = "") const {
    return "boot '" + tree_.path() + "' " + options;
  }

  TempTree tree_;
  TempTree other_;
};

// What makes the library record the forced connection.
constexpr const char* kForced =
    "--set persist.sys.911.shutdown=1 --set ro.vemra.internet.whether.force.connect=1 ";

TEST_F(BootTest, shows_steps_overrides_and_results_in_order) {
  const json record = Record(Boot("--set ro.shared=old"));
  EXPECT_EQ(Steps(record), (std::vector<std::string>{"partitions", "persist", "cota"}));
  const std::vector<json> maps = Events(record, "hand_over", "partitions");
  ASSERT_EQ(maps.size(), 1u);
  const json expected = {{{"name", "ro.odm"}, {"value", "spaced value"}, {"old", ""}},
                         {{"name", "ro.shared"}, {"value", "manifest"}, {"old", "old"}}};
  EXPECT_EQ(maps[0]["entries"], expected);
  EXPECT_EQ(record["initial"], (json{{"ro.shared", "old"}}));
  EXPECT_EQ(record["properties"]["ro.shared"], "manifest");

  const Outcome text = RunTool(Boot("--set ro.shared=old --log error"));
  EXPECT_NE(text.out.find("    [ro.shared]: [manifest]  (was [old])\n"), std::string::npos);
  EXPECT_NE(text.out.find("  E partition property load failed:/mnt/vendor/my_company/build.prop\n"),
            std::string::npos);
  EXPECT_LT(text.out.find("call persist"),
            text.out.find("resulting properties\n[ro.odm]: [spaced"));
  EXPECT_EQ(text.out.find("  W "), std::string::npos);
  EXPECT_EQ(text.out.find('\033'), std::string::npos);
}

TEST_F(BootTest, state_file_is_shown_with_mode_and_owner_and_the_tree_is_left_alone) {
  const auto before = Describe(tree_.path());
  const json record = Record(Boot(kForced));
  const json after = {{"type", "file"}, {"size", 34}, {"mode", 0600}, {"uid", 0}, {"gid", 0}};
  EXPECT_EQ(record["files"],
            (json{{{"change", "added"}, {"path", kForceState}, {"after", after}}}));
  const std::vector<json> files = Events(record, "file", "persist");
  EXPECT_TRUE(std::any_of(files.begin(), files.end(), [&](const json& file) {
    return file["op"] == "write" && file["path"] == kForceState && file["after"] == after;
  }));
  EXPECT_EQ(Describe(tree_.path()), before);
}

TEST_F(BootTest, kept_tree_and_saved_properties_make_a_second_boot) {
  const std::string kept = other_ / "kept";
  const std::string saved = other_ / "saved.prop";
  other_.Write("device.prop", "persist.sys.channel.info=shop\n");
  const std::string options = "--props '" + (other_ / "device.prop") + "' " + kForced +
                              "--call persist --call service=module_bind_single ";
  const Outcome first =
      RunTool(Boot(options + "--keep '" + kept + "' --save-props '" + saved + "'"));
  ASSERT_EQ(first.status, 0) << first.err;
  std::set<std::string> expected = Names(tree_.path());
  expected.erase("data/cota/cota_module_info.prop");
  expected.insert(std::string(kForceState).substr(1));
  EXPECT_EQ(Names(kept), expected) << "neither mounts nor the sandbox's own parts are kept";

  const json second = Record("boot '" + kept + "' " + options + "--props '" + saved + "'");
  EXPECT_EQ(second["files"], json::array());
  EXPECT_EQ(second["initial"]["persist.sys.recopy.preload.vminstalled"], "none");
  EXPECT_EQ(second["initial"]["persist.sys.channel.info"], "") << "what the boot cleared stays so";
}

TEST_F(BootTest, posts_are_served_by_the_bind_thread_in_order) {
  const json record =
      Record(Boot("--call partitions --post nonsense --post module_bind_single_boot "
                  "--post boot_mount_bind_complete --call service=no_such"));
  EXPECT_EQ(Steps(record),
            (std::vector<std::string>{"partitions", "service=check_mount", "post nonsense",
                                      "post module_bind_single_boot",
                                      "post boot_mount_bind_complete", "service=no_such"}));
  const std::vector<json> mounts = Events(record, "mount", "module_bind_single_boot");
  ASSERT_EQ(mounts.size(), 1u);
  const json mount = {{"event", "mount"},   {"thread", true}, {"source", "/module"},
                      {"target", "/bound"}, {"flags", 5253},  {"error", 0}};
  EXPECT_EQ(mounts[0], mount);
  const std::vector<json> sets = Events(record, "property_set", "module_bind_single_boot");
  ASSERT_EQ(sets.size(), 1u);
  EXPECT_EQ(sets[0]["value"], "null");
  EXPECT_EQ(record["properties"]["sys.module"], "ready");
  EXPECT_EQ(Events(record, "log", "service").back()["message"],
            "not valid cota mount bind command:no_such");

  // A thread that is still there does not keep the tool.
  const Outcome text = RunTool(Boot("--call partitions --post module_bind_single_boot"));
  EXPECT_EQ(text.status, 0);
  EXPECT_NE(text.out.find("\nmounts\n  mounted /module on /bound "
                          "MS_RDONLY|MS_NODEV|MS_DIRSYNC|MS_NOATIME|MS_BIND\n"),
            std::string::npos);
}

TEST_F(BootTest, a_step_that_cannot_be_completed_ends_the_boot) {
  const Outcome unserved = RunTool(Boot("--post boot_mount_bind_complete --post boot_mount"));
  EXPECT_EQ(unserved.status, 1);
  EXPECT_EQ(unserved.err, "extprop: boot_mount: no bind thread is there to serve it\n");
  EXPECT_NE(unserved.out.find("boot ends here"), std::string::npos);

  tree_.Write("data/cota/cota_mount_info.prop", "a=b\n");
  const Outcome thrown =
      RunTool(Boot("--call partitions --call service=update_cota_info --call persist "
                   "--set ro.vemra.customize.display.version_name=9 "
                   "--set ro.build.cota.version_name=X_U_COTA_7"));
  EXPECT_EQ(thrown.status, 1);
  EXPECT_EQ(thrown.err.find("extprop: service: the library threw an exception"), 0u) << thrown.err;
  EXPECT_EQ(thrown.out.find("call persist"), std::string::npos);
}

TEST_F(BootTest, reads_what_getprop_prints_and_values_that_are_no_text) {
  other_.Write("getprop.txt", "[ro.two.lines]: [one\r\n[two]: [three]\r\n[ro.odd]: [a]b\xff]\n");
  other_.Write("build.prop", "# comment\n\n ro.spaced = x=y \nro.odd=replaced\xff\t\x01z\n");
  const std::string files =
      "--props '" + (other_ / "getprop.txt") + "' --props '" + (other_ / "build.prop") + "'";
  const json record = Record(Boot(files + " --set ro.set=last --set ro.set=wins"));
  ASSERT_FALSE(record.is_discarded());
  EXPECT_EQ(record["initial"]["ro.two.lines"], "one\n[two]: [three");
  EXPECT_EQ(record["initial"]["ro.spaced"], "x=y");
  EXPECT_EQ(record["initial"]["ro.odd"], "replaced\xEF\xBF\xBD\t\x01z");
  EXPECT_EQ(record["initial"]["ro.set"], "wins");
  const std::string text = RunTool(Boot(files)).out;
  EXPECT_NE(text.find("[ro.odd]: [replaced\xff\\t\\x01z]\n"), std::string::npos);
  EXPECT_NE(text.find("[ro.two.lines]: [one\\n[two]: [three]\n"), std::string::npos);
}

TEST_F(BootTest, bad_input_gives_one_line_and_status_2) {
  other_.Write("file", "ok=1\nno property\n");
  other_.Write("full/file", "");
  const std::string file = other_ / "file";
  const struct {
    std::string arguments;
    std::string message;
  } cases[] = {
      {"", "subcommand"},
      {"boot", "DIR"},
      {"boot '" + (other_ / "none") + "'", "none: not a directory"},
      {"boot '" + file + "'", "file: not a directory"},
      {Boot("--props '" + (other_ / "none") + "'"), "none: No such file or directory"},
      {Boot("--props '" + file + "'"), "file:2: not NAME=VALUE"},
      {Boot("--props '" + other_.path() + "'"), "Is a directory"},
      {Boot("--set nothing"), "--set nothing: not NAME=VALUE"},
      {Boot("--set =x"), "--set =x"},
      {Boot("--call nothing"), "--call nothing: no such loader"},
      {Boot("--call persist=x"), "--call persist=x: it takes no argument"},
      {Boot("--call partition"), "--call partition: it needs an argument"},
      {Boot("--post ''"), "--post"},
      {Boot("--log loud"), "--log"},
      {Boot("--library '" + (other_ / "none") + "'"), "none: No such file or directory"},
      {Boot("--keep '" + (other_ / "full") + "'"), "full: is not an empty directory"},
      {Boot("--keep '" + file + "'"), "Not a directory"},
      {Boot("--keep '" + (other_ / "none/below") + "'"), "cannot make the directory"},
      {Boot("--keep '" + (tree_ / "new") + "'"), "lies in"},
      {Boot("--save-props '" + (tree_ / "new") + "'"), "lies in"},
  };
  const auto before = Describe(tree_.path());
  for (const auto& bad : cases) {
    const Outcome outcome = RunTool(bad.arguments);
    EXPECT_EQ(outcome.status, 2) << bad.arguments;
    EXPECT_EQ(outcome.out, "") << bad.arguments;
    EXPECT_EQ(outcome.err.find("extprop: "), 0u) << bad.arguments;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
    EXPECT_NE(outcome.err.find(bad.message), std::string::npos) << outcome.err;
  }
  EXPECT_EQ(Describe(tree_.path()), before);
}

// In a user namespace of its own, so that root has only an ordinary user's rights too.
TEST_F(BootTest, works_as_an_ordinary_user) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "ThreadSanitizer's own thread keeps a process from making a user namespace";
#endif
  const std::string user = "unshare --user --map-user=1000 --map-group=1000";
  const json own = Record(Boot(kForced), user);
  const json expected = Record(Boot(kForced));
  EXPECT_EQ(own["properties"], expected["properties"]);
  EXPECT_EQ(own["files"], expected["files"]);
  EXPECT_EQ(Events(own, "hand_over"), Events(expected, "hand_over"));
}

TEST_F(BootTest, says_what_to_do_where_the_kernel_refuses) {
  const std::string refuse =
      "unshare --user --map-root-user sh -c 'cd /proc/sys/user && echo 0 >max_user_namespaces && "
      "echo 0 >max_mnt_namespaces && exec \"$@\"' sh";
  const Outcome refused = RunTool(Boot(), refuse);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err.find('\n'), refused.err.size() - 1) << refused.err;
  EXPECT_NE(refused.err.find("allow user namespaces"), std::string::npos) << refused.err;
}

}  // namespace
