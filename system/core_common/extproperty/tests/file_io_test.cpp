#include "utils/file_io.h"

#include <errno.h>
#include <fcntl.h>
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
  Write("/d/bytes", bytes);
  Write("/d/empty", "");
  EXPECT_EQ(*ReadFile("/d/bytes") + *ReadFile("/d/empty"), bytes);
  // What a file claims is not taken from memory.
  ASSERT_EQ(truncate("/d/bytes", off_t{1} << 40), 0);
  EXPECT_EQ(*ReadFileWithOffset("/d/bytes", 1, 2), "\1\2");
  EXPECT_EQ(ReadFile("/d/bytes").error().message(), "Unable to read file contents: File too large");
}

TEST_F(FileIoTest, read_with_offset_is_padded_to_the_asked_length) {
  Write("/f", "0123456789");
  ASSERT_EQ(symlink("/f", "/link"), 0);
  EXPECT_EQ(*ReadFileWithOffset("/link", 8, 4), std::string("89\0\0", 4));
  EXPECT_EQ(*ReadFileWithOffset("/f", 50, 1024), std::string(1024, '\0'));
  EXPECT_EQ(ReadFileWithOffset("/", 0, 1).error().message(),
            "Unable to read file contents: Is a directory");
  // A descriptor that cannot be read still gives the full length; one that cannot seek, nothing.
  std::string content = "old";
  android::base::unique_fd write_only(open("/f", O_WRONLY | O_CLOEXEC));
  EXPECT_FALSE(ReadFdToStringWithOffset(write_only.get(), &content, 0, 3));
  EXPECT_EQ(content, std::string(3, '\0'));
  EXPECT_FALSE(ReadFdToStringWithOffset(-1, &content, 0, 3));
  EXPECT_EQ(WithLog(content), "E lseek() failed");
  MakeDirectories("/tmp");  // Where the test framework keeps the output.
  GTEST_FLAG_SET(death_test_style, "fast");
  EXPECT_DEATH(ReadFileWithOffset("/f", 0, 1025).ok(), "");
}

TEST_F(FileIoTest, writes_truncate_and_create_with_their_modes) {
  umask(022);
  for (const std::string content : {"a longer content", "new"}) {
    EXPECT_TRUE(WriteFile("/state", content).ok() && WriteStringToFile(content, "/text", true));
    EXPECT_EQ(State("/state"), "0600 0:0 " + content);
    EXPECT_EQ(State("/text"), "0644 0:0 " + content);
  }
  ASSERT_EQ(symlink("/target", "/link"), 0);
  EXPECT_EQ(WriteFile("/link", "x").error().code(), ELOOP);
  EXPECT_FALSE(WriteStringToFile("x", "/link", false));
  EXPECT_TRUE(WriteStringToFile("x", "/link", true));
  ASSERT_EQ(mknod("/full", S_IFCHR | 0666, makedev(1, 7)), 0) << "this test needs root";
  // A file that could not be written whole is removed, unless it is a state file.
  EXPECT_EQ(WriteFile("/full", "x").error().message(),
            "Unable to write file contents: No space left on device");
  EXPECT_TRUE(WriteStringToFile("", "/full", false) && Exists("/full"));
  EXPECT_FALSE(WriteStringToFile("x", "/full", false));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(Exists("/full") || WriteStringToFd("x", -1));
}

TEST(PathStrings, trim_path_and_path_name) {
  // A path, it trimmed, and its directory.
  for (const auto& row : Table("a/,/a,/a /a/b,/a/b,/a /,,/ ,,/ a//,/a/,/a/ a,/a,/")) {
    EXPECT_EQ(trimPath(row[0]), row[1]) << row[0];
    EXPECT_EQ(getPathName(row[0]), row[2]) << row[0];
  }
}
