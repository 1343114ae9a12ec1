#include <gtest/gtest.h>

#include <filesystem>
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
    tree_.Write("odm/build.prop", "ro.shared=odm\nro.odm=\tspaced value \npersist.zone=UTC\n");
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
      "--set ro.shared=old --set persist.zone=CET --set ro..shared=x --set persist.odd=\xff\xe4 "
      "--post module_bind_single_boot --post boot_mount_bind_complete";
  EXPECT_EQ(RunTool(Boot(options + " --all --log error | sed '/failed/d; /^\\[/d'")).out,
            R"(refused to boot with
    [persist.odd]: [\xff\xe4]  refused: Value is not a UTF8 encoded string
    [ro..shared]: [x]  refused: not a legal property name

call partitions
  filled map: 3 properties
    [persist.zone]: [UTC]
    [ro.odm]: [spaced value]
    [ro.shared]: [manifest]  (was [old])
  stored properties: 1 property
    [persist.zone]: [CET]  (was [UTC])

call persist
  hand-over, mode 0: 1 property
    [ro.sys.customize.flashback.company]: [invalid]

call cota

call service=check_mount

post module_bind_single_boot
  deleted /data/cota/cota_module_info.prop  (bind thread)
  mounted /module on /bound MS_RDONLY|MS_NODEV|MS_DIRSYNC|MS_NOATIME|MS_BIND  (bind thread)
  hand-over, mode 0: 1 property  (bind thread)
    [sys.module]: [ready]
  set [sys.cota.bind.load.properties]: [null]  (was [module_bind_single_boot])  (bind thread)

post boot_mount_bind_complete

resulting properties

changed files
  removed /data/cota/cota_module_info.prop

mounts
  mounted /module on /bound MS_RDONLY|MS_NODEV|MS_DIRSYNC|MS_NOATIME|MS_BIND
)");
  EXPECT_EQ(RunTool(Boot(options + " --json")).out, RunTool(Boot(options + " --json")).out);
}

TEST_F(BootTest, the_summary_holds_what_changed_and_fits_a_narrow_terminal) {
  tree_.Write("odm/build.prop", "ro.same=1\nro.shared=odm\nro.new=2\n");
  const std::string options =
      Boot("--set ro.shared=odd --set ro.same=1 --call partitions --log warning ");
  EXPECT_EQ(RunTool(options + "| sed /failed/d").out,
            "1 step: 2 properties before, 3 after, 1 of the first replaced; 0 changed files, 0 "
            "mounts; logged: 9 errors, 10 warnings. --all shows the whole.\n\ncall partitions\n"
            "  W Overriding previous 'ro.' property 'ro.shared':'odm' with new value 'manifest'\n"
            "  filled map: 3 properties, 1 replaced\n    [ro.shared]: [manifest]  (was [odd])\n\n"
            "changed files\n  none\n\nmounts\n  none\n");
  const std::string narrow =
      "script -qec 'stty cols 60; TERM=dumb " EXTPROP " " + options +
      "' /dev/null | tr -d '\\r' | awk 'length > 60 || /\\033/; END { print (NR > 9) }'; true";
  EXPECT_EQ(RunTool("--version >/dev/null", narrow).out, "1\n");
}

TEST_F(BootTest, a_kept_tree_boots_as_the_device_would_next) {
  other_.Write("device.prop", "persist.sys.channel.info=shop\npersist.zone=CET\n");
  const std::string kept = other_ / "kept", saved = other_ / "saved.prop";
  const std::string given = "--props " + other_ / "device.prop ";
  const std::string options = given + kForced + "--call persist --call service=module_bind_single ";
  const auto before = Describe(tree_.path());
  // What is kept is told by name: neither mounts nor the sandbox's own parts are.
  EXPECT_EQ(RunTool(Boot(options + "--keep " + kept + " --save-props " + saved) +
                    " | sed -n '/^changed/,/^$/p'; cd " + tree_.path() + "; diff -rq . " + kept)
                .out,
            "changed files\n  removed /data/cota/cota_module_info.prop\n  added " + kSsv +
                "/force_connect_internet_prop_file  34 bytes  0600 0:0\n\n"
                "Only in " +
                kept + ": .extprop-stored.prop\n" + "Only in ./data/cota: cota_module_info.prop\n" +
                "Only in " + kept + kSsv + ": force_connect_internet_prop_file\n");
  EXPECT_EQ(Describe(tree_.path()), before);

  const json second = RunJson("boot " + kept + " " + given);
  EXPECT_EQ(second["files"], json::array());
  EXPECT_EQ(second["initial"]["persist.sys.recopy.preload.vminstalled"], "none");
  EXPECT_EQ(second["initial"]["persist.sys.channel.info"], "") << "what the boot cleared stays so";
  EXPECT_EQ(second["properties"]["persist.zone"], "CET") << "stored, so no partition's";
  EXPECT_EQ(RunJson(Boot(given + "--props " + saved))["initial"], second["initial"]);

  tree_.Write("odm/large", std::string(4096, 'x'));
  RunTool(Boot("--keep " + other_ / "cut"), "sh -c 'ulimit -f 2; exec \"$@\"' sh");
  ExpectRefusal(RunTool("boot " + other_ / "cut"), 2, "not a whole tree");
}

TEST_F(BootTest, a_step_that_cannot_be_completed_ends_the_boot) {
  const Outcome unserved =
      RunTool(Boot("--post boot_mount_bind_complete --post boot_mount --call partitions"));
  EXPECT_EQ(unserved.status, 1);
  EXPECT_EQ(unserved.err, "extprop: post boot_mount: no bind thread is there to serve it\n");
  EXPECT_TRUE(Has(unserved.out, "boot ends here") && !Has(unserved.out, "call partitions"));
  // One that nothing is asked of any more does not keep the tool.
  EXPECT_EQ(RunTool(Boot("--call partitions --post module_bind_single_boot")).status, 0);

  tree_.Write("data/cota/cota_mount_info.prop", "a=b\n");
  EXPECT_EQ(RunTool(Boot("--call partitions --call service=update_cota_info "
                         "--set ro.vemra.customize.display.version_name=9 "
                         "--set ro.build.cota.version_name=X_U_COTA_7"))
                .err.find("extprop: service=update_cota_info: the library threw"),
            0u);
  for (const char* file : {"data/cota/cota_mount_info.prop", "odm/build.prop"}) {
    const std::string pipe = "rm " + tree_ / file + "; mkfifo " + tree_ / file + ";";
    ExpectRefusal(RunTool(Boot("--timeout 1 --post boot_mount"), pipe), 1,
                  std::string("has not ended after 1 s; it waits for /") + file);
  }
}

TEST_F(BootTest, reads_a_build_prop_and_what_getprop_prints) {
  other_.Write("getprop", "[ro.lines]: [one\r\n[two]: [three]\nfour]\r\n[ro.odd]: [ a]b]\n");
  other_.Write("build.prop",
               "# comment\n\n ro.spaced = x=y \r\nro.odd=replaced\t\x01z\nimport /x\nnone\n");
  const std::string options = Boot("--props " + other_ / "getprop" + " --props - --json <" +
                                   other_ / "build.prop" + " --set ro.set=last --set ro.set=wins");
  const Outcome outcome = RunTool(options);
  EXPECT_EQ(outcome.err,
            "extprop: warning: -:5: not followed: import /x\n"
            "extprop: warning: -:6: no property: none\n");
  EXPECT_EQ(json::parse(outcome.out)["initial"], (json{{"ro.lines", "one\n[two]: [three]\nfour"},
                                                       {"ro.spaced", "x=y"},
                                                       {"ro.odd", "replaced\t\x01z"},
                                                       {"ro.set", "wins"}}));
}

TEST_F(BootTest, a_phone_keeps_its_carrier_without_its_state_files) {
  std::filesystem::remove_all(tree_ / "mnt/vendor/vemrareserve");
  tree_.Write("odm/build.prop", "ro.current=none\nro.odm=spaced value\npersist.zone=UTC\n");
  tree_.Write("odm/etc/nvmap.prop", "CARR1=west\n");
  tree_.Write("odm/properties/west/SimSwitchFirstTime/a.prop", "ro.first=west\n");
  tree_.Write("odm/properties/west/SimSwitchCurrentTime/a.prop", "ro.current=west\n");
  // As getprop tells it after the second boot, which converted nothing.
  other_.Write("phone",
               "[persist.zone]: [UTC]\n[ro.boot.vmcarrier]: [CARR1]\n[ro.odm]: [spaced value]\n"
               "[ro.shared]: [manifest]\n[ro.current]: [west]\n[ro.first]: "
               "[west]\n[ro.sys.customize.flashback.company]: "
               "[Acme]\n[sys.sim.switch.convert]: [true]\n[sys.sim.switch.current]: [west]\n"
               "[sys.sim.switch.first]: [west]\n");
  const std::string phone = other_ / "phone";
  EXPECT_EQ(RunTool("diff " + tree_.path() + " --phone " + phone + " --against " + phone).out,
            "only on the phone: 0 that nothing here sets\n");
  other_.Write("phone", "[ro.a]: [1]\nwarning\n[ro.b]: [2]\n[ro.c]: [3]\n");
  ExpectRefusal(RunTool("boot " + tree_.path() + " --phone " + phone), 2, ":2: not [NAME]");
}

TEST_F(BootTest, a_phone_boots_with_what_nothing_here_sets) {
  tree_.Write("mnt/vendor/my_region/build.prop",
              "import /odm/etc/${ro.boot.sku}.prop\nro.vemra.image.my_region.version_name=A-1-2\n");
  tree_.Write("odm/etc/eea.prop", "ro.sku=EEA\n");
  const std::string device =
      kForced +
      "--set ro.build.display.id=V_1 --set ro.vendor.vemra.version_suffix=.C "
      "--set ro.none.clear.switch.first=true --set ro.boot.sku=eea --set ro.lines='a\nb]\nc'";
  json first = RunJson(Boot(device));
  std::string report = "------ LOG ------\n[other]: [run]\n------ SYSTEM PROPERTIES ------\n";
  for (const auto& [name, value] : first["properties"].items()) {
    report += "[" + name + "]: [" + value.get<std::string>() + "]\n";
  }
  other_.Write("report", report + "------ 0.1s was the duration ------\n[other]: [run]\n");
  const std::string phone = other_ / "report", options = tree_.path() + " --phone " + phone;
  EXPECT_EQ(RunTool("diff " + options + " --against " + phone).out,
            "only on the phone: 0 that nothing here sets\n");
  // The partition's value is stored on a phone as any other.
  first["initial"]["persist.zone"] = "UTC";
  for (const auto& [name, value] : first["properties"].items()) {
    if (name.rfind("persist.", 0) == 0) first["initial"][name] = value;
  }
  EXPECT_EQ(RunJson("boot " + options)["initial"], first["initial"]);
  tree_.Write("odm/etc/eea.prop", "ro.sku=other\n");
  EXPECT_TRUE(Has(RunTool("diff " + options + " --against " + phone).out, "[ro.sku]\n  - [other]"));
}

TEST_F(BootTest, bad_input_gives_one_line_and_status_2) {
  other_.Write("file", "[ok]: [1]\nno property\n");
  other_.Write("full/file", "");
  const std::string file = other_ / "file", none = other_ / "none", inside = tree_ / "new";
  const auto before = Describe(tree_.path());
  for (const auto& [arguments, message] :
       std::initializer_list<std::pair<std::string, std::string>>{
           {"help nothing", "no such command"},
           {"boot " + file, "file: not a directory"},
           {Boot("--props " + file), "file:2: not [NAME]: [VALUE]"},
           {Boot("--phone " + none), "none: No such file or directory"},
           {Boot("--set =x"), "--set =x: not NAME=VALUE"},
           {Boot("--timeout 0"), "--timeout"},
           {Boot("--call nothing"), "--call nothing: no such loader"},
           {Boot("--call partition"), "--call partition: it needs an argument"},
           {Boot("--call service=boot"), "not one of check_mount, mount_and_check_load"},
           {Boot("--post null"), "--post null: not one of boot_mount, module_bind_single_boot"},
           {Boot("--keep " + other_ / "full"), "full: is not an empty directory"},
           {Boot("--keep " + inside), "lies in"},
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
  EXPECT_TRUE(Has(shown["texts"].dump(), "\"</script><!--<script>\xEF\xBF\xBD\""));
}

// In a user namespace of its own, so that root has only an ordinary user's rights too.
TEST_F(BootTest, works_as_an_ordinary_user) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "ThreadSanitizer's own thread keeps a process from making a user namespace";
#endif
  const std::string user = "unshare --user --map-user=1000 --map-group=1000";
  tree_.Write(kSsv + "/sim_switch_current_file", "northcell");
  const json by_root = RunJson(Boot(kForced));
  EXPECT_EQ(by_root["files"][1]["after"]["uid"], 1000);
  EXPECT_EQ(RunJson(Boot(kForced), user), by_root);
}

TEST_F(BootTest, says_what_to_do_where_the_kernel_refuses) {
  const std::string refuse =
      "unshare --user --map-root-user sh -c 'cd /proc/sys/user && echo 0 >max_user_namespaces && "
      "echo 0 >max_mnt_namespaces && exec \"$@\"' sh";
  ExpectRefusal(RunTool(Boot(""), refuse), 1, "allow user namespaces");
}

}  // namespace
