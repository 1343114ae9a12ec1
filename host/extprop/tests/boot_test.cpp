#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/extprop/tests/run_tool.h"
#include "host/sandbox/tests/temp_tree.h"

namespace {

using nlohmann::json;

const std::string kForceState =
    "/mnt/vendor/vemrareserve/system/ssv/force_connect_internet_prop_file";
// What makes the library write it.
const std::string kForced =
    "--set persist.sys.911.shutdown=1 --set ro.vemra.internet.whether.force.connect=1 ";

bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// The events of that kind in the steps of that name.
std::vector<json> Events(const json& record, const std::string& kind, const std::string& step) {
  std::vector<json> events;
  for (const json& taken : record["steps"]) {
    for (const json& event : taken["events"]) {
      if (taken["name"] == step && event["event"] == kind) events.push_back(event);
    }
  }
  return events;
}

std::set<std::string> Names(const std::string& tree) {
  std::set<std::string> names;
  for (const auto& [name, about] : Describe(tree)) names.insert(name);
  return names;
}

std::string Steps(const json& record) {
  std::string steps;
  for (const json& step : record["steps"]) {
    steps += (step["post"] ? "post " : "") + step["name"].get<std::string>() + " " +
             step["argument"].get<std::string>() + "\n";
  }
  return steps;
}

class BootTest : public testing::Test {
 protected:
  BootTest() {
    tree_.Write("odm/build.prop", "ro.shared=odm\nro.odm=\tspaced value \n");
    tree_.Write("mnt/vendor/my_manifest/build.prop", "ro.shared=manifest\n");
    tree_.Write(kForceState.substr(1) + ".sibling", "");
    tree_.Write("data/cota/cota_module_info.prop",
                "mount_point=/module\nmodule_type=file\nbind_point=/bound\nsys.module=ready\n");
    tree_.Write("module/in_module", "");
    tree_.Write("bound/under_module", "");
  }

  std::string Boot(const std::string& options) const {
    return "boot '" + tree_.path() + "' " + options;
  }

  TempTree tree_;
  TempTree other_;
};

TEST_F(BootTest, shows_steps_overrides_and_results_in_order) {
  const json record = RunJson(Boot("--set ro.shared=old"));
  EXPECT_EQ(Steps(record), "partitions \npersist \ncota \n");
  const json entries = {{{"name", "ro.odm"}, {"value", "spaced value"}, {"old", ""}},
                        {{"name", "ro.shared"}, {"value", "manifest"}, {"old", "old"}}};
  EXPECT_EQ(Events(record, "hand_over", "partitions").at(0)["entries"], entries);
  EXPECT_EQ(record["initial"], (json{{"ro.shared", "old"}}));
  EXPECT_EQ(record["properties"]["ro.shared"], "manifest");

  const std::string text = RunTool(Boot("--set ro.shared=old --log error")).out;
  EXPECT_TRUE(Has(text, "    [ro.shared]: [manifest]  (was [old])\n"));
  EXPECT_TRUE(Has(text, "  E partition property load failed:/mnt/vendor/my_company/build.prop\n"));
  EXPECT_LT(text.find("call persist"), text.find("resulting properties\n[ro.odm]: [spaced"));
  EXPECT_FALSE(Has(text, "  W ") || Has(text, "\033"));
}

TEST_F(BootTest, kept_tree_and_saved_properties_make_a_second_boot) {
  other_.Write("device.prop", "persist.sys.channel.info=shop\n");
  const std::string kept = other_ / "kept", saved = other_ / "saved.prop";
  const std::string options = "--props '" + (other_ / "device.prop") + "' " + kForced +
                              "--call persist --call service=module_bind_single ";
  const auto before = Describe(tree_.path());
  const json first = RunJson(Boot(options + "--keep '" + kept + "' --save-props '" + saved + "'"));
  EXPECT_EQ(Describe(tree_.path()), before);
  const json after = {{"type", "file"}, {"size", 34}, {"mode", 0600}, {"uid", 0}, {"gid", 0}};
  EXPECT_EQ(first["files"][1],
            (json{{"change", "added"}, {"path", kForceState}, {"after", after}}));
  std::set<std::string> expected = Names(tree_.path());
  expected.erase("data/cota/cota_module_info.prop");
  expected.insert(kForceState.substr(1));
  EXPECT_EQ(Names(kept), expected) << "neither mounts nor the sandbox's own parts are kept";

  const json second = RunJson("boot '" + kept + "' " + options + "--props '" + saved + "'");
  EXPECT_EQ(second["files"], json::array());
  EXPECT_EQ(second["initial"]["persist.sys.recopy.preload.vminstalled"], "none");
  EXPECT_EQ(second["initial"]["persist.sys.channel.info"], "") << "what the boot cleared stays so";
}

TEST_F(BootTest, posts_are_served_by_the_bind_thread_in_order) {
  const json record =
      RunJson(Boot("--call partitions --post nonsense --post module_bind_single_boot "
                   "--post boot_mount_bind_complete --call service=no_such"));
  EXPECT_EQ(Steps(record),
            "partitions \nservice check_mount\npost nonsense \npost module_bind_single_boot \n"
            "post boot_mount_bind_complete \nservice no_such\n");
  const json mount = {{"event", "mount"},   {"thread", true}, {"source", "/module"},
                      {"target", "/bound"}, {"flags", 5253},  {"error", 0}};
  EXPECT_EQ(Events(record, "mount", "module_bind_single_boot"), std::vector<json>{mount});
  EXPECT_EQ(Events(record, "property_set", "module_bind_single_boot").at(0)["value"], "null");
  EXPECT_EQ(record["properties"]["sys.module"], "ready");
  EXPECT_EQ(Events(record, "log", "service").back()["message"],
            "not valid cota mount bind command:no_such");

  // A thread that is still there does not keep the tool.
  EXPECT_TRUE(Has(RunTool(Boot("--call partitions --post module_bind_single_boot")).out,
                  "\nmounts\n  mounted /module on /bound "
                  "MS_RDONLY|MS_NODEV|MS_DIRSYNC|MS_NOATIME|MS_BIND\n"));
}

TEST_F(BootTest, a_step_that_cannot_be_completed_ends_the_boot) {
  const Outcome unserved = RunTool(Boot("--post boot_mount_bind_complete --post boot_mount"));
  EXPECT_EQ(unserved.status, 1);
  EXPECT_EQ(unserved.err, "extprop: boot_mount: no bind thread is there to serve it\n");
  EXPECT_TRUE(Has(unserved.out, "boot ends here"));

  tree_.Write("data/cota/cota_mount_info.prop", "a=b\n");
  const Outcome thrown =
      RunTool(Boot("--call partitions --call service=update_cota_info --call persist "
                   "--set ro.vemra.customize.display.version_name=9 "
                   "--set ro.build.cota.version_name=X_U_COTA_7"));
  EXPECT_EQ(thrown.status, 1);
  EXPECT_EQ(thrown.err.find("extprop: service: the library threw an exception"), 0u) << thrown.err;
  EXPECT_FALSE(Has(thrown.out, "call persist"));
}

TEST_F(BootTest, reads_what_getprop_prints_and_values_that_are_no_text) {
  other_.Write("getprop.txt", "[ro.two.lines]: [one\r\n[two]: [three]\r\n[ro.odd]: [a]b\xff]\n");
  other_.Write("build.prop", "# comment\n\n ro.spaced = x=y \nro.odd=replaced\xff\t\x01z\n");
  const std::string options = "--props '" + (other_ / "getprop.txt") + "' --props '" +
                              (other_ / "build.prop") + "' --set ro.set=last --set ro.set=wins";
  const json initial = RunJson(Boot(options))["initial"];
  EXPECT_EQ(initial, (json{{"ro.two.lines", "one\n[two]: [three"},
                           {"ro.spaced", "x=y"},
                           {"ro.odd", "replaced\xEF\xBF\xBD\t\x01z"},
                           {"ro.set", "wins"}}));
  const std::string text = RunTool(Boot(options)).out;
  EXPECT_TRUE(Has(text, "[ro.odd]: [replaced\xff\\t\\x01z]\n"));
  EXPECT_TRUE(Has(text, "[ro.two.lines]: [one\\n[two]: [three]\n"));
}

TEST_F(BootTest, bad_input_gives_one_line_and_status_2) {
  other_.Write("file", "ok=1\nno property\n");
  other_.Write("full/file", "");
  const auto with = [&](const std::string& option, const std::string& path) {
    return Boot(option + " '" + path + "'");
  };
  const std::string file = other_ / "file", none = other_ / "none";
  const std::pair<std::string, std::string> cases[] = {
      {"boot", "DIR"},
      {"boot '" + file + "'", "file: not a directory"},
      {with("--props", none), "none: No such file or directory"},
      {with("--props", file), "file:2: not NAME=VALUE"},
      {with("--props", other_.path()), "Is a directory"},
      {Boot("--set =x"), "--set =x: not NAME=VALUE"},
      {Boot("--call nothing"), "--call nothing: no such loader"},
      {Boot("--call persist=x"), "--call persist=x: it takes no argument"},
      {Boot("--call partition"), "--call partition: it needs an argument"},
      {Boot("--log loud"), "--log"},
      {with("--library", none), "none: No such file or directory"},
      {with("--keep", other_ / "full"), "full: is not an empty directory"},
      {with("--keep", tree_ / "new"), "lies in"},
      {with("--save-props", tree_ / "new"), "lies in"},
      {with("--html", tree_ / "new"), "lies in"},
      {with("--html", other_ / "none/below"), "No such file or directory"}};
  const auto before = Describe(tree_.path());
  for (const auto& [arguments, message] : cases) {
    const Outcome outcome = RunTool(arguments);
    EXPECT_EQ(outcome.status, 2) << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
    EXPECT_EQ(outcome.err.find("extprop: "), 0u) << arguments;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
    EXPECT_TRUE(Has(outcome.err, message)) << outcome.err;
  }
  EXPECT_EQ(Describe(tree_.path()), before);
}

TEST_F(BootTest, page_holds_any_value) {
  tree_.Write("odm/etc/end.prop", "ro.end=</script><!--<script>\xff\n");
  tree_.Write("odm/build.prop", "import /odm/etc/end.prop\n");
  EXPECT_EQ(RunTool(Boot("--html '" + (other_ / "page") + "'")).out, "");
  std::string page;
  ASSERT_TRUE(android::base::ReadFileToString(other_ / "page", &page));
  const size_t begin = page.find('{', page.find("id=\"record\">"));
  const size_t end = page.find("</script>", begin);
  const json shown = json::parse(page.substr(begin, end - begin));
  EXPECT_EQ(page.find("<!--", begin), std::string::npos);
  EXPECT_EQ(shown["record"]["properties"]["ro.end"], "</script><!--<script>\xEF\xBF\xBD");
  EXPECT_EQ(shown["histories"]["ro.end"][0]["place"], "/odm/etc/end.prop:1");
}

// In a user namespace of its own, so that root has only an ordinary user's rights too.
TEST_F(BootTest, works_as_an_ordinary_user) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "ThreadSanitizer's own thread keeps a process from making a user namespace";
#endif
  const std::string user = "unshare --user --map-user=1000 --map-group=1000";
  EXPECT_EQ(RunJson(Boot(kForced), user)["files"], RunJson(Boot(kForced))["files"]);
  const std::string explain = "explain '*' '" + tree_.path() + "' " + kForced;
  EXPECT_EQ(RunJson(explain, user), RunJson(explain));
}

TEST_F(BootTest, says_what_to_do_where_the_kernel_refuses) {
  const std::string refuse =
      "unshare --user --map-root-user sh -c 'cd /proc/sys/user && echo 0 >max_user_namespaces && "
      "echo 0 >max_mnt_namespaces && exec \"$@\"' sh";
  const Outcome refused = RunTool(Boot(""), refuse);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err.find('\n'), refused.err.size() - 1) << refused.err;
  EXPECT_TRUE(Has(refused.err, "allow user namespaces")) << refused.err;
}

}  // namespace
