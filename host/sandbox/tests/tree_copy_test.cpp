#include "host/sandbox/tree_copy.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "host/sandbox/private_root.h"
#include "host/sandbox/tests/temp_tree.h"

namespace {

using android::base::Result;
using android::base::unique_fd;

unique_fd Open(const std::string& directory) {
  return unique_fd(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

void Age(const std::string& path, time_t seconds) {
  const timespec times[] = {{seconds, 0}, {seconds, 123456789}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
}

TEST(tree_copy, every_kind_of_entry_and_its_attributes) {
  TempTree from, to;
  from.Write("etc/build.prop", std::string(3 << 20, 'x') + "end");
  from.Write("etc/empty", "");
  from.Write("closed/state", "1");
  ASSERT_EQ(symlink("nowhere", (from / "etc/dangling").c_str()), 0);
  ASSERT_EQ(mkfifo((from / "fifo").c_str(), 0620), 0);
  ASSERT_EQ(mknod((from / "device").c_str(), S_IFCHR | 0644, makedev(1, 3)), 0);
  ASSERT_EQ(chown((from / "etc/empty").c_str(), 1000, 1001), 0);
  ASSERT_EQ(lchown((from / "etc/dangling").c_str(), 1000, 1001), 0);
  ASSERT_EQ(chmod((from / "etc/empty").c_str(), 06751), 0);
  ASSERT_EQ(chmod((from / "closed").c_str(), 01555), 0);
  for (const char* name : {"etc/empty", "etc/dangling", "etc", "closed"}) Age(from / name, 1000);

  Result<void> copied = sandbox::CopyTree(Open(from.path()), Open(to.path()));
  ASSERT_TRUE(copied.ok()) << copied.error();
  EXPECT_EQ(Describe(to.path()), Describe(from.path()));
}

TEST(tree_copy, existing_file_is_an_error_with_its_path) {
  TempTree from, to;
  from.Write("odm", "new");
  to.Write("odm", "old");
  Result<void> copied = sandbox::CopyTree(Open(from.path()), Open(to.path()));
  ASSERT_FALSE(copied.ok());
  EXPECT_EQ(copied.error().message(), "cannot copy odm: File exists");
  std::string content;
  android::base::ReadFileToString(to / "odm", &content);
  EXPECT_EQ(content, "old");
}

// What a loader left in a private root comes out, and nothing of what was mounted there.
TEST(tree_copy, out_of_a_private_root_without_its_mounts) {
  TempTree tree, kept;
  tree.Write("odm/build.prop", "a=b");
  tree.Write("my_carrier/old", "");
  tree.Write("one_file", "under");
  unique_fd to = Open(kept.path());
  Result<int> status = sandbox::RunInPrivateRoot({tree.path()}, [&to] {
    android::base::WriteStringToFile("c=d", "/odm/added.prop");
    unlink("/my_carrier/old");
    EXPECT_EQ(mount("/odm", "/my_carrier", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(mount("/odm/build.prop", "/one_file", nullptr, MS_BIND, nullptr), 0);
    Result<void> copied = sandbox::CopyTree(Open("/"), to, {"proc"});
    EXPECT_TRUE(copied.ok()) << copied.error();
    return testing::Test::HasFailure() ? 1 : 0;
  });
  ASSERT_TRUE(status.ok()) << status.error();
  EXPECT_EQ(*status, 0);
  std::string names;
  for (const auto& entry : Describe(kept.path())) names += entry.first + " ";
  EXPECT_EQ(names, "my_carrier odm odm/added.prop odm/build.prop ");
}

}  // namespace
