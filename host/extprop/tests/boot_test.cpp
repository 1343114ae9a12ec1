#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "host/extprop/tests/run_tool.h"

namespace {

using nlohmann::json;

const std::string kSsv = "/mnt/vendor/vemrareserve/system/ssv";
// What makes the library write a file there.
const std::string kForced =
    " --set persist.sys.911.shutdown=1 --set ro.vemra.internet.whether.force.connect=1 ";

class BootTest : public testing::Test {
 protected:
  BootTest() {
    tree_.Write("odm/build.prop", "ro.shared=odm\nro.odm=\tspaced value \n");
    tree_.Write("mnt/vendor/my_manifest/build.prop", "ro.shared=manifest\n");
    tree_.Write(kSsv + "/sibling", "");
    tree_.Write("data/cota/cota_module_info.prop",
                "mount_point=/module\nmodule_type=file\nbind_point=/bound\nsys.module=ready\n");
    tree_.Write("module/in_module", "");
    tree_.Write("bound/under_module", "");
  }

  std::string Boot(const std::string& options) const {
    return "boot " + tree_.path() + " " + options;
  }

  TempTree tree_;
  TempTree other_;
};

TEST_F(BootTest, tells_all_that_happened_in_order) {
  const std::string options =
      "--set ro.shared=old --post nonsense --post module_bind_single_boot "
      "--post boot_mount_bind_complete --call service=no_such";
  EXPECT_EQ(RunTool(Boot(options + " --log error | grep -v failed")).out, R"(call partitions
  filled map: 2 properties
    [ro.odm]: [spaced value]
    [ro.shared]: [manifest]  (was [old])

call persist
  hand-over, mode 0: 1 property
    [ro.sys.customize.flashback.company]: [invalid]

call cota

call service=check_mount

post nonsense

post module_bind_single_boot
  deleted /data/cota/cota_module_info.prop  (bind thread)
  mounted /module on /bound MS_RDONLY|MS_NODEV|MS_DIRSYNC|MS_NOATIME|MS_BIND  (bind thread)
  hand-over, mode 0: 1 property  (bind thread)
    [sys.module]: [ready]
  set [sys.cota.bind.load.properties]: [null]  (was [module_bind_single_boot])  (bind thread)

post boot_mount_bind_complete

call service=no_such
  E not valid cota mount bind command:no_such

resulting properties
[ro.odm]: [spaced value]
[ro.shared]: [manifest]
[ro.sys.customize.flashback.company]: [invalid]
[sys.cota.bind.load.properties]: [boot_mount_bind_complete]
[sys.module]: [ready]

changed files
  removed /data/cota/cota_module_info.prop

mounts
  mounted /module on /bound MS_RDONLY|MS_NODEV|MS_DIRSYNC|MS_NOATIME|MS_BIND
)");
  EXPECT_EQ(RunJson(Boot(options))["steps"][5]["events"].back()["event"], "property_set");
}

TEST_F(BootTest, kept_tree_and_saved_properties_make_a_second_boot) {
  other_.Write("device.prop", "persist.sys.channel.info=shop\n");
  const std::string kept = other_ / "kept", saved = other_ / "saved.prop";
  const std::string options = "--props " + other_ / "device.prop" + kForced +
                              "--call persist --call service=module_bind_single ";
  const auto before = Describe(tree_.path());
  // What is kept is told by name: neither mounts nor the sandbox's own parts are.
  EXPECT_EQ(RunTool(Boot(options + "--keep " + kept + " --save-props " + saved) +
                    " | sed -n '/^changed/,/^$/p'; cd " + tree_.path() + "; diff -rq . " + kept)
                .out,
            "changed files\n  removed /data/cota/cota_module_info.prop\n  added " + kSsv +
                "/force_connect_internet_prop_file  34 bytes  0600 0:0\n\n"
                "Only in ./data/cota: cota_module_info.prop\nOnly in " +
                kept + kSsv + ": force_connect_internet_prop_file\n");
  EXPECT_EQ(Describe(tree_.path()), before);

  const json second = RunJson("boot " + kept + " " + options + "--props " + saved);
  EXPECT_EQ(second["files"], json::array());
  EXPECT_EQ(second["initial"]["persist.sys.recopy.preload.vminstalled"], "none");
  EXPECT_EQ(second["initial"]["persist.sys.channel.info"], "") << "what the boot cleared stays so";
}

TEST_F(BootTest, a_step_that_cannot_be_completed_ends_the_boot) {
  const Outcome unserved =
      RunTool(Boot("--post boot_mount_bind_complete --post boot_mount --call partitions"));
  EXPECT_EQ(unserved.status, 1);
  EXPECT_EQ(unserved.err, "extprop: boot_mount: no bind thread is there to serve it\n");
  EXPECT_TRUE(Has(unserved.out, "boot ends here") && !Has(unserved.out, "call partitions"));
  // One that nothing is asked of any more does not keep the tool.
  EXPECT_EQ(RunTool(Boot("--call partitions --post module_bind_single_boot")).status, 0);

  tree_.Write("data/cota/cota_mount_info.prop", "a=b\n");
  EXPECT_EQ(RunTool(Boot("--call partitions --call service=update_cota_info "
                         "--set ro.vemra.customize.display.version_name=9 "
                         "--set ro.build.cota.version_name=X_U_COTA_7"))
                .err.find("extprop: service: the library threw an exception"),
            0u);
}

TEST_F(BootTest, reads_what_getprop_prints_and_values_that_are_no_text) {
  other_.Write("getprop.txt", "[ro.two.lines]: [one\r\n[two]: [three]\r\n[ro.odd]: [a]b\xff]\n");
  other_.Write("build.prop", "# comment\n\n ro.spaced = x=y \nro.odd=replaced\xff\t\x01z\n");
  const std::string options = Boot("--props " + other_ / "getprop.txt" + " --props " +
                                   other_ / "build.prop" + " --set ro.set=last --set ro.set=wins");
  EXPECT_EQ(RunJson(options)["initial"], (json{{"ro.two.lines", "one\n[two]: [three"},
                                               {"ro.spaced", "x=y"},
                                               {"ro.odd", "replaced\xEF\xBF\xBD\t\x01z"},
                                               {"ro.set", "wins"}}));
  EXPECT_TRUE(Has(RunTool(options).out,
                  "[ro.odd]: [replaced\xff\\t\\x01z]\n[ro.odm]: [spaced value]\n"
                  "[ro.set]: [wins]\n[ro.shared]: [manifest]\n"
                  "[ro.spaced]: [x=y]\n[ro.sys.customize.flashback.company]: [invalid]\n"
                  "[ro.two.lines]: [one\\n[two]: [three]\n"));
}

TEST_F(BootTest, bad_input_gives_one_line_and_status_2) {
  other_.Write("file", "ok=1\nno property\n");
  other_.Write("full/file", "");
  const std::string file = other_ / "file", none = other_ / "none", inside = tree_ / "new";
  const auto before = Describe(tree_.path());
  for (const auto& [arguments, message] :
       std::initializer_list<std::pair<std::string, std::string>>{
           {"boot", "DIR"},
           {"boot " + file, "file: not a directory"},
           {Boot("--props " + none), "none: No such file or directory"},
           {Boot("--props " + file), "file:2: not NAME=VALUE"},
           {Boot("--set =x"), "--set =x: not NAME=VALUE"},
           {Boot("--call nothing"), "--call nothing: no such loader"},
           {Boot("--call persist=x"), "--call persist=x: it takes no argument"},
           {Boot("--call partition"), "--call partition: it needs an argument"},
           {Boot("--log loud"), "--log"},
           {Boot("--library " + none), "none: No such file or directory"},
           {Boot("--keep " + other_ / "full"), "full: is not an empty directory"},
           {Boot("--keep " + inside), "lies in"},
           {Boot("--save-props " + inside), "lies in"},
           {Boot("--html " + inside), "lies in"},
           {Boot("--html " + none + "/below"), "No such file or directory"}}) {
    ExpectRefusal(RunTool(arguments), 2, message);
  }
  EXPECT_EQ(Describe(tree_.path()), before);
}

TEST_F(BootTest, page_holds_any_value) {
  tree_.Write("odm/etc/end.prop", "ro.end=</script><!--<script>\xff\n");
  tree_.Write("odm/build.prop", "import /odm/etc/end.prop\n");
  EXPECT_EQ(RunTool(Boot("--html " + other_ / "page")).out, "");
  std::string page;
  ASSERT_TRUE(android::base::ReadFileToString(other_ / "page", &page));
  const size_t begin = page.find('{', page.find("id=\"record\">"));
  EXPECT_EQ(page.find("<!--", begin), std::string::npos);
  const json shown = json::parse(page.substr(begin, page.find("</script>", begin) - begin));
  EXPECT_EQ(shown["record"]["properties"]["ro.end"], "</script><!--<script>\xEF\xBF\xBD");
  EXPECT_EQ(shown["histories"]["ro.end"][0]["place"], "/odm/etc/end.prop:1");
}

// In a user namespace of its own, so that root has only an ordinary user's rights too.
TEST_F(BootTest, works_as_an_ordinary_user) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "ThreadSanitizer's own thread keeps a process from making a user namespace";
#endif
  const std::string user = "unshare --user --map-user=1000 --map-group=1000";
  const std::string explain = "explain '*' " + tree_.path() + kForced;
  EXPECT_EQ(RunJson(explain, user), RunJson(explain));
}

TEST_F(BootTest, says_what_to_do_where_the_kernel_refuses) {
  const std::string refuse =
      "unshare --user --map-root-user sh -c 'cd /proc/sys/user && echo 0 >max_user_namespaces && "
      "echo 0 >max_mnt_namespaces && exec \"$@\"' sh";
  ExpectRefusal(RunTool(Boot(""), refuse), 1, "allow user namespaces");
}

}  // namespace
