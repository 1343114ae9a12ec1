#include "host/sandbox/tree_copy.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>

#include "host/sandbox/private_root.h"
#include "host/sandbox/tests/temp_tree.h"

namespace {

using android::base::Result;
using android::base::unique_fd;

unique_fd Open(const std::string& directory) {
  return unique_fd(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// What a loader left in a private root comes out, and nothing of what was mounted there. What a
// private root shows of a copy tells that every kind of entry is copied.
TEST(tree_copy, out_of_a_private_root_without_its_mounts_and_never_over_a_file) {
  TempTree tree, kept;
  tree.Write("odm/build.prop", "a=b");
  tree.Write("my_carrier/under", "");
  tree.Write("one_file", "under");
  tree.Write("plain_file", "");
  unique_fd to = Open(kept.path());
  Result<int> status = sandbox::RunInPrivateRoot({tree.path()}, [&to] {
    EXPECT_EQ(mount("/odm", "/my_carrier", nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(mount("/odm/build.prop", "/one_file", nullptr, MS_BIND, nullptr), 0);
    Result<void> copied = sandbox::CopyTree(Open("/"), to, {"proc"});
    EXPECT_TRUE(copied.ok()) << copied.error();
    copied = sandbox::CopyTree(Open("/"), to, {"proc", "my_carrier", "odm"});
    EXPECT_EQ(copied.ok() ? "" : copied.error().message(), "cannot copy plain_file: File exists");
    return testing::Test::HasFailure();
  });
  ASSERT_TRUE(status.ok()) << status.error();
  EXPECT_EQ(*status, 0);
  std::string names;
  for (const auto& entry : Describe(kept.path())) names += entry.first + " ";
  EXPECT_EQ(names, "my_carrier odm odm/build.prop plain_file ");
}

}  // namespace
