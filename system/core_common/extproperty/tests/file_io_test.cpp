#include "utils/file_io.h"

#include <errno.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "tests/device_test.h"
#include "utils/path_strings.h"

using namespace android::init;

using FileIoTest = DeviceTest;

TEST_F(FileIoTest, read_returns_everything_within_bounds) {
  std::string bytes;
  for (int i = 0; i < 5000; ++i) bytes.push_back(static_cast<char>(i));
  Write("/bytes", bytes);
  EXPECT_EQ(*ReadFile("/bytes"), bytes);
  // With an offset it is padded to the asked length.
  EXPECT_EQ(*ReadFileWithOffset("/bytes", 4998, 4), bytes.substr(4998) + std::string(2, '\0'));
  // What a file claims is not taken from memory.
  ASSERT_EQ(truncate("/bytes", off_t{1} << 40), 0);
  EXPECT_EQ(ReadFile("/bytes").error().message(), "Unable to read file contents: File too large");
}

TEST_F(FileIoTest, writes_truncate_and_create_with_their_modes) {
  umask(022);
  for (const std::string content : {"a longer content", "new"}) {
    EXPECT_TRUE(WriteFile("/state", content).ok() && WriteStringToFile(content, "/text", true));
    EXPECT_EQ(Read("/state") + ModeAndOwner("/state"), content + "0600 0:0");
    EXPECT_EQ(Read("/text") + ModeAndOwner("/text"), content + "0644 0:0");
  }
  fs::create_symlink("/target", "/link");
  EXPECT_FALSE(WriteFile("/link", "x").ok() || WriteStringToFile("x", "/link", false));
  EXPECT_TRUE(WriteStringToFile("x", "/link", true));
}

TEST_F(FileIoTest, failed_write_removes_the_file_and_keeps_its_error) {
  ASSERT_EQ(mknod("/full", S_IFCHR | 0666, makedev(1, 7)), 0) << "this test needs root";
  {
    const FailingCall failing(watch::Call::kUnlink, "/full", EIO);
    EXPECT_FALSE(WriteStringToFile("x", "/full", false));
    EXPECT_EQ(errno, ENOSPC);
  }
  EXPECT_FALSE(WriteStringToFile("x", "/full", false) || fs::exists("/full"));
}

TEST(PathStrings, trim_path_and_path_name) {
  EXPECT_EQ(trimPath("a/") + " " + trimPath("/a/b") + " " + trimPath(""), "/a /a/b ");
  EXPECT_EQ(getPathName("/a/b") + " " + getPathName("a") + " " + getPathName(""), "/a / /");
}
