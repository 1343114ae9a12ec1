#include "host/sandbox/private_root.h"

#include <android-base/unique_fd.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>

#include "host/sandbox/tests/temp_tree.h"

namespace {

namespace fs = std::filesystem;
using android::base::ReadFileToString;
using android::base::Result;
using android::base::WriteStringToFile;
using sandbox::RunInPrivateRoot;

std::string Content(const std::string& path) {
  std::string content;
  return ReadFileToString(path, &content) ? content : "unreadable";
}

// For the end of a body: its failed expectations are counted in the child only.
int Outcome() {
  return testing::Test::HasFailure() ? 1 : 0;
}

void ExpectSuccess(const Result<int>& status) {
  ASSERT_TRUE(status.ok()) << status.error();
  EXPECT_EQ(*status, 0);
}

// Returns the exit status of `body`, run in a child process.
int InChild(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void FillTree(const TempTree& tree) {
  tree.Write("odm/build.prop", "a=b");
  tree.Write("odm/etc/old.prop", "");
  tree.Write("my_carrier/carrier.prop", "c=d");
  fs::create_symlink("/odm/build.prop", tree / "link");
}

class PrivateRootView : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(, PrivateRootView, testing::Values(false, true),
                         [](const auto& about) { return about.param ? "copy" : "overlay"; });

TEST_P(PrivateRootView, shows_the_tree_as_it_is) {
  TempTree tree;
  FillTree(tree);
  ASSERT_EQ(chown((tree / "odm/build.prop").c_str(), 1000, 1001), 0) << "needs root";
  ASSERT_EQ(chmod((tree / "odm/build.prop").c_str(), 04640), 0);
  const auto expected = Describe(tree.path());
  const std::string outside = fs::current_path();
  const std::string name = Content("/proc/self/comm");
  const mode_t old_mask = umask(077);
  Result<int> status = RunInPrivateRoot({tree.path(), GetParam()}, [&] {
    EXPECT_EQ(umask(0), 077u);
    struct statfs kind = {};
    statfs("/", &kind);
    EXPECT_EQ(kind.f_type, GetParam() ? TMPFS_MAGIC : OVERLAYFS_SUPER_MAGIC);
    struct stat root = {};
    stat("/", &root);
    EXPECT_EQ(root.st_mode, S_IFDIR | 0755u);
    EXPECT_EQ(Content("/proc/self/comm"), name);
    EXPECT_EQ(Content("/proc/self/mountinfo").find("/dev/"), std::string::npos);
    EXPECT_NE(access(outside.c_str(), F_OK), 0);
    umount2("/proc", MNT_DETACH);
    rmdir("/proc");
    EXPECT_EQ(Describe("/"), expected);
    return Outcome();
  });
  umask(old_mask);
  ExpectSuccess(status);
}

TEST_P(PrivateRootView, leaves_nothing_of_what_is_done_in_it) {
  TempTree tree;
  FillTree(tree);
  const auto before = Describe(tree.path());
  const std::string mounts = Content("/proc/self/mountinfo");
  const auto descriptors = [] {
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
  };
  const auto open_before = descriptors();
  Result<int> status = RunInPrivateRoot({tree.path(), GetParam()}, [&] {
    EXPECT_EQ(descriptors(), open_before);
    EXPECT_TRUE(WriteStringToFile("new", "/odm/build.prop"));
    EXPECT_TRUE(WriteStringToFile("new", "/new.prop"));
    EXPECT_EQ(fs::remove_all("/odm/etc"), 2u);
    EXPECT_EQ(mkdir("/odm/etc", 0700), 0);
    EXPECT_TRUE(fs::is_empty("/odm/etc"));
    EXPECT_EQ(chmod("/my_carrier", 0700), 0);
    EXPECT_EQ(mount("/odm", "/my_carrier", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(Content("/my_carrier/build.prop"), "new");
    return Outcome();
  });
  ExpectSuccess(status);
  EXPECT_EQ(Describe(tree.path()), before);
  EXPECT_EQ(Content("/proc/self/mountinfo"), mounts);
  EXPECT_EQ(descriptors(), open_before);
  for (const char* name : {"/tmp/root", "/tmp/upper", "/tmp/work"}) {
    EXPECT_NE(access(name, F_OK), 0) << name;
  }
}

TEST(private_root, tree_that_is_no_directory_is_an_error) {
  TempTree tree;
  tree.Write("file", "");
  bool ran = false;
  const auto body = [&ran] { return ran = true; };
  Result<int> missing = RunInPrivateRoot({tree / "missing"}, body);
  Result<int> file = RunInPrivateRoot({tree / "file"}, body);
  ASSERT_FALSE(missing.ok() || file.ok());
  const std::string text = "cannot open the tree " + tree.path();
  EXPECT_EQ(missing.error().message(), text + "/missing: No such file or directory");
  EXPECT_EQ(file.error().message(), text + "/file: Not a directory");
  tree.Write("linked/file", "");
  fs::create_directory_symlink("/etc", tree / "linked/proc");
  Result<int> linked = RunInPrivateRoot({tree / "linked"}, body);
  ASSERT_FALSE(linked.ok());
  EXPECT_EQ(linked.error().message(), "private root: mount /proc: Not a directory");
}

TEST(private_root, exit_status_and_signals_of_the_body) {
  Result<int> status = RunInPrivateRoot({}, [] { return 7; });
  ASSERT_TRUE(status.ok()) << status.error();
  EXPECT_EQ(*status, 7);

  Result<int> killed = RunInPrivateRoot({}, [] { return raise(SIGKILL); });
  ASSERT_FALSE(killed.ok());
  EXPECT_EQ(killed.error().message(),
            "the process in the private root was ended by signal 9 (Killed)");
}

TEST(private_root, ends_with_its_caller) {
  android::base::unique_fd alive, held;
  ASSERT_TRUE(Pipe(&alive, &held));
  const pid_t caller = fork();
  if (caller == 0) {
    Result<int> status = RunInPrivateRoot({}, [&held] {
      android::base::WriteStringToFd("x", held);
      return pause();
    });
    _exit(EXIT_FAILURE);
  }
  held.reset();
  char byte = 0;
  ASSERT_EQ(read(alive.get(), &byte, 1), 1);
  kill(caller, SIGTERM);
  waitpid(caller, nullptr, 0);
  // The end of the pipe shows that no process holds its other end any longer.
  alarm(20);
  EXPECT_EQ(read(alive.get(), &byte, 1), 0);
  alarm(0);
}

bool BecomeOrdinaryUser() {
  return setgroups(0, nullptr) == 0 && setgid(65534) == 0 && setuid(65534) == 0 &&
         prctl(PR_SET_DUMPABLE, 1) == 0;
}

int RunAsOrdinaryUser(const TempTree& tree, bool copy) {
  // The kernel refuses user namespaces to processes with several threads, which some sanitizers'
  // runtimes start, and where its administrator says so.
  const bool allowed = InChild([] { return unshare(CLONE_NEWUSER | CLONE_NEWNS); }) == 0;
  Result<int> status = RunInPrivateRoot({tree.path(), copy}, [] {
    EXPECT_EQ(getuid(), 0u);
    EXPECT_EQ(Content("/odm/build.prop"), "a=b");
    EXPECT_TRUE(WriteStringToFile("new", "/odm/build.prop"));
    EXPECT_EQ(fs::remove_all("/odm/etc"), 2u);
    EXPECT_EQ(mkdir("/odm/etc", 0700), 0);
    EXPECT_EQ(mount("/odm", "/my_carrier", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(Content("/my_carrier/build.prop"), "new");
    return Outcome();
  });
  if (allowed) {
    ExpectSuccess(status);
  } else {
    EXPECT_FALSE(status.ok());
    if (!status.ok()) std::cerr << status.error() << "\n";
  }
  return Outcome();
}

TEST_P(PrivateRootView, as_an_ordinary_user) {
  TempTree tree;
  FillTree(tree);
  for (const auto& entry : fs::recursive_directory_iterator(tree.path())) {
    ASSERT_EQ(lchown(entry.path().c_str(), 65534, 65534), 0) << "needs root";
  }
  ASSERT_EQ(chown(tree.path().c_str(), 65534, 65534), 0);
  const auto before = Describe(tree.path());
  EXPECT_EQ(InChild([&] { return BecomeOrdinaryUser() ? RunAsOrdinaryUser(tree, GetParam()) : 2; }),
            0);
  EXPECT_EQ(Describe(tree.path()), before);
}

}  // namespace
