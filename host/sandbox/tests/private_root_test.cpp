#include "host/sandbox/private_root.h"

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/sandbox/tests/temp_tree.h"

namespace {

namespace fs = std::filesystem;
using android::base::Result;
using android::base::WriteStringToFile;
using sandbox::RunInPrivateRoot;

// The exit status, or else the error.
std::string Told(const Result<int>& status) {
  return status.ok() ? std::to_string(*status) : status.error().message();
}

std::string Content(const std::string& path) {
  std::string content;
  return android::base::ReadFileToString(path, &content) ? content : "unreadable";
}

auto CountDescriptors() {
  return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

// Every kind of entry, with attributes that are easily lost.
void FillTree(const TempTree& tree) {
  tree.Write("odm/build.prop", "a=b");
  tree.Write("odm/etc/old.prop", "");
  tree.Write("my_carrier/large", std::string(100000, 'x') + "end");
  tree.Write("closed/state", "1");
  fs::create_symlink("nowhere", tree / "link");
  ASSERT_EQ(mkfifo((tree / "fifo").c_str(), 0620), 0);
  ASSERT_EQ(mknod((tree / "device").c_str(), S_IFCHR | 0644, makedev(1, 3)), 0) << "needs root";
  const timespec times[] = {{1000, 0}, {1000, 123456789}};
  for (const char* name : {"odm/etc", "odm/build.prop", "link"}) {
    const std::string path = tree / name;
    ASSERT_EQ(lchown(path.c_str(), 1000, 1001), 0) << "needs root";
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  ASSERT_EQ(chmod((tree / "odm/build.prop").c_str(), 06751), 0);
  ASSERT_EQ(chmod((tree / "closed").c_str(), 01555), 0);
}

void ExpectRootCanBeChanged() {
  EXPECT_TRUE(WriteStringToFile("new", "/odm/build.prop"));
  EXPECT_EQ(fs::remove_all("/odm/etc"), 2u);
  EXPECT_EQ(mkdir("/odm/etc", 0700), 0);
  EXPECT_TRUE(fs::is_empty("/odm/etc"));
  EXPECT_EQ(mount("/odm", "/my_carrier", nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(Content("/my_carrier/build.prop"), "new");
}

class PrivateRootView : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(, PrivateRootView, testing::Values(false, true),
                         [](const auto& about) { return about.param ? "copy" : "overlay"; });

TEST_P(PrivateRootView, shows_the_tree_as_it_is_and_leaves_nothing_of_what_is_done_in_it) {
  TempTree tree;
  FillTree(tree);
  const auto before = Describe(tree.path());
  const std::string mounts = Content("/proc/self/mountinfo");
  const auto descriptors = CountDescriptors();
  const std::string outside = fs::current_path();
  const mode_t old_mask = umask(077);
  Result<int> status = RunInPrivateRoot({tree.path(), {}, {}, GetParam()}, [&] {
    EXPECT_EQ(umask(0), 077u);
    EXPECT_EQ(CountDescriptors(), descriptors);
    struct statfs kind = {};
    statfs("/", &kind);
    EXPECT_EQ(kind.f_type, GetParam() ? TMPFS_MAGIC : OVERLAYFS_SUPER_MAGIC);
    EXPECT_EQ(fs::status("/").permissions(), fs::perms(0755));
    EXPECT_EQ(Content("/proc/self/mountinfo").find("/dev/"), std::string::npos);
    EXPECT_FALSE(fs::exists(outside));
    umount2("/proc", MNT_DETACH);
    rmdir("/proc");
    EXPECT_EQ(Describe("/"), before);
    ExpectRootCanBeChanged();
    return HasFailure();
  });
  umask(old_mask);
  EXPECT_EQ(Told(status), "0");
  EXPECT_EQ(Describe(tree.path()), before);
  EXPECT_EQ(Content("/proc/self/mountinfo"), mounts);
  EXPECT_EQ(CountDescriptors(), descriptors);
  EXPECT_FALSE(fs::exists("/tmp/upper"));
}

TEST(private_root, status_or_error_tells_how_it_ended) {
  TempTree tree;
  tree.Write("file", "");
  fs::create_directory(tree / "linked");
  fs::create_directory_symlink("/etc", tree / "linked/proc");
  const auto body = [] { return 7; };
  EXPECT_EQ(Told(RunInPrivateRoot({}, body)), "7");
  EXPECT_EQ(Told(RunInPrivateRoot({}, [] { return raise(SIGKILL); })),
            "the process in the private root was ended by signal 9 (Killed)");
  EXPECT_EQ(Told(RunInPrivateRoot({tree / "missing"}, body)),
            "cannot open the tree " + tree / "missing" + ": No such file or directory");
  EXPECT_EQ(Told(RunInPrivateRoot({tree / "file"}, body)),
            "cannot open the tree " + tree / "file" + ": Not a directory");
  EXPECT_EQ(Told(RunInPrivateRoot({tree / "linked"}, body)),
            "private root: mount /proc: Not a directory");
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

}  // namespace
