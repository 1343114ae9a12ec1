#include "host/extprop/trees/open_tree.h"

#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "host/sandbox/tests/temp_tree.h"

namespace {

namespace fs = std::filesystem;
using android::base::Result;
using android::base::WriteStringToFile;
using extprop::DeviceTree;
using extprop::OpenTree;

constexpr uid_t kUser = 65534;

std::string Content(const std::string& path) {
  std::string content;
  return android::base::ReadFileToString(path, &content, true) ? content : "unreadable";
}

// What a path has on the device, or why the tree cannot be opened or shown.
std::string OnDevice(const Result<DeviceTree>& tree, const std::string& path) {
  if (!tree.ok()) return tree.error().message();
  TempTree out;
  Result<int> status =
      sandbox::RunInPrivateRoot(tree->root, [&, fd = open(out.path().c_str(), O_PATH)] {
        const std::string content = Content(path);
        EXPECT_EQ(fchdir(fd), 0);
        EXPECT_TRUE(WriteStringToFile(content, "content"));
        EXPECT_TRUE(WriteStringToFile("changed", path, true));
        return 0;
      });
  return status.ok() ? Content(out / "content") : status.error().message();
}

void Shell(const std::string& command) {
  ASSERT_EQ(system(("{ " + command + "; } >/dev/null 2>&1").c_str()), 0) << command;
}

class Images : public testing::Test {
 protected:
  Images() {
    // Neither 7zz's notion of links nor a file's attributes may get in between.
    files_.Write("build.prop", "ro.a=1\n");
    files_.Write("etc/large", std::string(300000, 'x'));
    fs::create_symlink("/odm/build.prop", files_ / "etc/absolute");
    fs::create_symlink("../build.prop", files_ / "etc/relative");
    setenv("XDG_CACHE_HOME", cache_.path().c_str(), 1);
    fs::create_directories(device_ / "vendor/odm");
    fs::create_directory_symlink("/vendor/odm", device_ / "odm");
  }

  TempTree files_, device_, cache_;
};

TEST_F(Images, in_the_tree_or_named_are_shown_and_stay_as_they_are) {
  const std::string from = "'" + files_.path() + "'", to = "'" + device_.path() + "'";
  Shell("mkfs.erofs -zlz4hc " + to + "/odm.img " + from);
  Shell("mke2fs -t ext4 -d " + from + " " + to + "/my_product.img 8M");
  Shell("cd " + to + " && img2simg odm.img sparse_erofs && img2simg my_product.img sparse_ext4");
  const auto before = Describe(device_.path());
  const Result<DeviceTree> tree = OpenTree(
      device_.path(), {"my_stock=" + device_ / "sparse_erofs",
                       "my_region=" + device_ / "sparse_ext4", "my_company=" + files_.path()});
  EXPECT_EQ(OnDevice(tree, "/odm/build.prop"), "ro.a=1\n");
  for (const char* name : {"my_product", "my_stock", "my_region", "my_company"}) {
    const std::string root = std::string("/mnt/vendor/") + name;
    EXPECT_EQ(OnDevice(tree, root + "/etc/large"), std::string(300000, 'x')) << name;
    EXPECT_EQ(OnDevice(tree, root + "/etc/relative"), "ro.a=1\n") << name;
    EXPECT_EQ(OnDevice(tree, root + "/etc/absolute"), "ro.a=1\n") << name;
  }
  EXPECT_EQ(Describe(device_.path()), before);
  EXPECT_EQ(AsGiven(*tree, "/mnt/vendor/my_company/build.prop"), files_ / "build.prop");
  EXPECT_EQ(AsGiven(*tree, "/odm/etc/large"), device_ / "odm.img:/etc/large");
  EXPECT_EQ(AsGiven(*tree, "/data/x"), device_ / "data/x");
}

TEST_F(Images, are_unpacked_once_and_anew_when_changed_and_never_by_halves) {
  const std::string image = device_ / "odm.img",
                    unfinished = cache_ / "extprop/images/unfinished-1";
  const std::string make =
      "rm -f '" + image + "'; mkfs.erofs '" + image + "' '" + files_.path() + "'";
  const auto shown = [&](bool with_tools) {
    const std::string path = getenv("PATH");
    if (!with_tools) setenv("PATH", "/nowhere", 1);
    const Result<DeviceTree> tree = OpenTree(device_.path(), {});
    setenv("PATH", path.c_str(), 1);
    return OnDevice(tree, "/odm/build.prop");
  };
  Shell(make);
  EXPECT_EQ(shown(false),
            "cannot unpack " + image + ": fsck.erofs is needed; install the package erofs-utils");
  fs::create_directories(unfinished);
  EXPECT_EQ(shown(true), "ro.a=1\n");
  EXPECT_FALSE(fs::exists(unfinished));
  EXPECT_EQ(shown(false), "ro.a=1\n");

  files_.Write("build.prop", "ro.a=2\n");
  Shell("touch -r '" + image + "' '" + cache_ / "time'; " + make + "; touch -r '" +
        cache_ / "time' '" + image + "'");
  EXPECT_EQ(shown(true), "ro.a=2\n");
  // The superblock's checksum, with which the program that unpacks is content.
  Shell("printf XXXX | dd of='" + image + "' bs=1 seek=1028 conv=notrunc");
  for (const unsigned size : {8192u, 5000u, 1100u, 10u}) {
    fs::resize_file(image, size);
    EXPECT_EQ(shown(true).find("cannot unpack " + image + ": "), 0u) << size;
  }
}

// A workstation that has a tree at /tree, root's if it is not the ordinary user's own.
struct Workstation {
  const char* name;
  bool mounts, ordinary_user, own, copy;
};

class Mounts : public testing::TestWithParam<Workstation> {};
INSTANTIATE_TEST_SUITE_P(, Mounts,
                         testing::Values(Workstation{"of_root", true, false, false, false},
                                         Workstation{"of_a_user", true, true, false, false},
                                         Workstation{"foreign_tree", false, true, false, false},
                                         Workstation{"own_tree", false, true, true, false},
                                         Workstation{"copied_tree", false, true, false, true}),
                         [](const auto& about) { return about.param.name; });

constexpr char kState[] = "/mnt/vendor/vemrareserve/system/ssv/state";

int ExpectDevice() {
  const Workstation& workstation = Mounts::GetParam();
  const std::string content = workstation.mounts ? "mounted" : "under";
  EXPECT_EQ(Content("/mnt/vendor/my_carrier/build.prop"), content);
  EXPECT_EQ(Content("/one_file"), content);
  EXPECT_EQ(fs::read_symlink("/link"), "/one_file");
  struct statfs kind = {};
  statfs("/mnt/vendor/my_carrier", &kind);
  EXPECT_EQ(kind.f_type == OVERLAYFS_SUPER_MAGIC, !workstation.copy);
  EXPECT_TRUE(WriteStringToFile("new", kState));
  EXPECT_TRUE(WriteStringToFile("new", "/data/cota/new"));
  EXPECT_EQ(unlink("/data/cota/old"), 0);
  EXPECT_EQ(WriteStringToFile("new", "/odm/build.prop"),
            !workstation.ordinary_user || workstation.own || workstation.copy);
  return testing::Test::HasFailure();
}

int BootAsUser() {
  EXPECT_TRUE(!Mounts::GetParam().ordinary_user ||
              (setuid(kUser) == 0 && prctl(PR_SET_DUMPABLE, 1) == 0));
  Result<DeviceTree> tree = OpenTree("/tree", {});
  if (!tree.ok()) return EXIT_FAILURE;
  tree->root.copy = Mounts::GetParam().copy;
  const Result<int> shown = sandbox::RunInPrivateRoot(tree->root, ExpectDevice);
  const std::string told = shown.ok() ? std::to_string(*shown) : shown.error().message();
#ifdef __SANITIZE_THREAD__  // whose runtime starts a thread of its own
  EXPECT_TRUE(told == "0" || told == "private root: the process has a second thread") << told;
#else
  EXPECT_EQ(told, "0");
#endif
  return testing::Test::HasFailure();
}

int MountAndBoot() {
  if (Mounts::GetParam().mounts) {
    EXPECT_EQ(mount("/outside", "/tree/mnt/vendor/my_carrier", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(mount("/outside/build.prop", "/tree/one_file", nullptr, MS_BIND, nullptr), 0);
  }
  const auto before = Describe("/tree");
  const pid_t user = fork();
  if (user == 0) _exit(BootAsUser());
  int ended = -1;
  waitpid(user, &ended, 0);
  EXPECT_EQ(ended, 0);
  EXPECT_EQ(Describe("/tree"), before);
  return testing::Test::HasFailure();
}

TEST_P(Mounts, in_the_tree_are_shown_and_state_can_be_changed_but_never_there) {
  TempTree top;
  for (const char* name : {"one_file", "mnt/vendor/my_carrier/build.prop", "data/cota/old", kState,
                           "odm/build.prop", "odm/closed/file", "odm/closed_file"}) {
    top.Write(std::string("tree/") + name, "under");
  }
  top.Write("outside/build.prop", "mounted");
  fs::create_symlink("/one_file", top / "tree/link");
  fs::create_directory(top / "tmp");
  fs::permissions(top / "tree/odm/closed", fs::perms::none);
  fs::permissions(top / "tree/odm/closed_file", fs::perms::none);
  if (GetParam().own) Shell("chown -R " + std::to_string(kUser) + " '" + top / "tree'");
  const Result<int> status = sandbox::RunInPrivateRoot({top.path(), {}, {}, true}, MountAndBoot);
  EXPECT_TRUE(status.ok() && *status == 0);
}

TEST(device_tree, without_a_partition_is_an_error_that_tells_what_was_meant) {
  TempTree top;
  top.Write("dump/odm/etc/file", "");
  top.Write("dump/data/cota/file", "");
  top.Write("dump/mnt/vendor/my_carrier/etc/file", "");
  top.Write("flat/my_product/build.prop", "");
  top.Write("only_company/my_company/etc/build.prop", "");
  fs::create_directories(top / "linked");
  fs::create_directory_symlink(top / "dump/odm", top / "linked/odm");
  const auto told = [&](const std::string& directory) {
    const Result<DeviceTree> tree = OpenTree(top / directory, {});
    const std::string text = tree.ok() ? "opened" : tree.error().message();
    return text.substr(text.rfind(": ") == std::string::npos ? 0 : text.rfind(": ") + 2);
  };
  EXPECT_EQ(told("dump"), "opened");
  EXPECT_EQ(told("only_company"), "--partition my_company=" + top / "only_company/my_company");
  EXPECT_EQ(told("."), top / "./dump");
  for (const char* below :
       {"odm", "odm/etc", "mnt", "mnt/vendor", "mnt/vendor/my_carrier/etc", "data/cota"}) {
    EXPECT_EQ(told(std::string("dump/") + below), top / "dump") << below;
  }
  EXPECT_EQ(told("flat"), "--partition my_product=" + top / "flat/my_product");
  EXPECT_EQ(told("linked"), "--partition odm=" + top / "linked/odm");
  EXPECT_EQ(told("flat/my_product"), "nothing is in odm or mnt/vendor/my_*");
}

TEST(device_tree, tells_the_links_that_lead_out_of_it) {
  TempTree tree;
  tree.Write("odm/build.prop", "");
  tree.Write("system/vendor/my_carrier/build.prop", "");
  fs::create_directory(tree / "mnt");
  const std::map<std::string, std::string> links = {
      {"mnt/vendor", "/system/vendor"},
      {"system/vendor/my_stock", "/usr/bin"},
      {"odm/out", "/bin/sh"},
      {"odm/within", "/odm/build.prop"},
      {"odm/nowhere", "/no/such/file"},
      {"odm/circle", "circle"},
      {"odm/above", "../../file"},
      {"system/vendor/my_carrier/up", "../../../file"},
      {"data", "/usr/lib"},
      {"my_company", "/usr/bin"},
  };
  for (const auto& [path, target] : links) fs::create_symlink(target, tree / path);
  std::string found;
  for (const extprop::OutgoingLink& link : LinksOut(*OpenTree(tree.path(), {}))) {
    found += link.path + " -> " + link.target + "\n";
  }
  EXPECT_EQ(found,
            "/data -> /usr/lib\n/my_company -> /usr/bin\n"
            "/odm/above -> ../../file\n/odm/out -> /bin/sh\n/system/vendor/my_stock -> /usr/bin\n");
}

}  // namespace
