#include "utils/file_io.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "tests/device_test.h"
#include "utils/path_strings.h"

using android::base::unique_fd;
using namespace android::init;

using FileIoTest = DeviceTest;

TEST_F(FileIoTest, read_file_returns_everything_or_the_failed_step) {
  std::string bytes;
  for (int i = 0; i < 5000; ++i) bytes.push_back(static_cast<char>(i));
  Write("/d/bytes", bytes);
  Write("/d/empty", "");
  ASSERT_EQ(symlink("/d/bytes", "/d/link"), 0);

  EXPECT_EQ(*ReadFile("/d/bytes"), bytes);
  EXPECT_EQ(*ReadFile("/d/empty"), "");
  // A file without a size of its own.
  EXPECT_FALSE(ReadFile("/proc/self/status")->empty());
  EXPECT_EQ(ReadFile("/d/none").error().message(), "open() failed: No such file or directory");
  EXPECT_EQ(ReadFile("/d/none").error().code(), ENOENT);
  EXPECT_EQ(ReadFile("/d/link").error().code(), ELOOP);
  EXPECT_EQ(ReadFile("/d").error().message(), "Unable to read file contents: Is a directory");
}

TEST_F(FileIoTest, size_that_a_file_claims_is_not_taken_from_memory) {
  Write("/sparse", "x");
  ASSERT_EQ(truncate("/sparse", off_t{1} << 40), 0);
  EXPECT_EQ(*ReadFileWithOffset("/sparse", 0, 2), std::string("x\0", 2));
  EXPECT_EQ(ReadFile("/sparse").error().code(), EFBIG);
}

TEST_F(FileIoTest, read_with_offset_is_padded_to_the_asked_length) {
  Write("/f", "0123456789");
  ASSERT_EQ(symlink("/f", "/link"), 0);
  EXPECT_EQ(*ReadFileWithOffset("/f", 8, 4), std::string("89\0\0", 4));
  EXPECT_EQ(*ReadFileWithOffset("/link", 2, 3), "234");
  EXPECT_EQ(*ReadFileWithOffset("/f", 50, 2), std::string(2, '\0'));
  EXPECT_EQ(ReadFileWithOffset("/f", 0, 1024)->size(), 1024u);
  EXPECT_EQ(ReadFileWithOffset("/none", 0, 1).error().message(),
            "open() failed: No such file or directory");
  EXPECT_EQ(ReadFileWithOffset("/", 0, 1).error().message(),
            "Unable to read file contents: Is a directory");

  // A descriptor that cannot be read still gives the full length; one that cannot seek, nothing.
  std::string content = "old";
  unique_fd write_only(open("/f", O_WRONLY | O_CLOEXEC));
  EXPECT_FALSE(ReadFdToStringWithOffset(write_only.get(), &content, 0, 3));
  EXPECT_EQ(content, std::string(3, '\0'));
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  unique_fd reader(ends[0]), writer(ends[1]);
  TakeLog();
  EXPECT_FALSE(ReadFdToStringWithOffset(reader.get(), &content, 0, 3));
  EXPECT_EQ(content, "");
  EXPECT_EQ(TakeLog(), std::vector<std::string>{"E lseek() failed"});
}

TEST_F(FileIoTest, read_with_offset_ends_the_process_for_more_than_its_buffer) {
  Write("/f", "x");
  MakeDirectories("/tmp");  // Where the test framework keeps the output.
  GTEST_FLAG_SET(death_test_style, "fast");
  EXPECT_DEATH(ReadFileWithOffset("/f", 0, 1025).ok(), "");
  EXPECT_DEATH(ReadFileWithOffset("/f", 0, -1).ok(), "");
}

TEST_F(FileIoTest, writes_truncate_and_create_with_their_modes) {
  umask(022);
  Write("/old", "a longer content");
  EXPECT_TRUE(WriteFile("/old", "new").ok());
  EXPECT_EQ(Read("/old"), "new");
  EXPECT_TRUE(WriteFile("/state", "s").ok());
  EXPECT_EQ(ModeAndOwner("/state").substr(0, 4), "0600");
  EXPECT_TRUE(WriteStringToFile("", "/text", true));
  EXPECT_EQ(Read("/text"), "");
  EXPECT_EQ(ModeAndOwner("/text").substr(0, 4), "0644");

  ASSERT_EQ(symlink("/target", "/link"), 0);
  EXPECT_EQ(WriteFile("/link", "x").error().code(), ELOOP);
  EXPECT_FALSE(WriteStringToFile("x", "/link", false));
  EXPECT_EQ(errno, ELOOP);
  EXPECT_TRUE(WriteStringToFile("x", "/link", true));
  EXPECT_EQ(Read("/target"), "x");
  EXPECT_EQ(WriteFile("/none/f", "x").error().message(),
            "open() failed: No such file or directory");
}

TEST_F(FileIoTest, failed_write_leaves_a_state_file_but_no_other) {
  ASSERT_EQ(mknod("/full", S_IFCHR | 0666, makedev(1, 7)), 0) << "this test needs root";
  EXPECT_EQ(WriteFile("/full", "x").error().message(),
            "Unable to write file contents: No space left on device");
  EXPECT_TRUE(Exists("/full"));
  EXPECT_TRUE(WriteStringToFile("", "/full", false));
  EXPECT_FALSE(WriteStringToFile("x", "/full", false));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(Exists("/full"));
  EXPECT_FALSE(WriteStringToFd("x", -1));
  EXPECT_TRUE(WriteStringToFd("", -1));
}

TEST(PathStrings, trim_path_and_path_name) {
  const std::pair<const char*, const char*> trimmed[] = {
      {"a/", "/a"}, {"/a/b", "/a/b"}, {"/", ""}, {"", ""}, {"//", "/"}, {"a//", "/a/"}};
  for (const auto& [path, expected] : trimmed) EXPECT_EQ(trimPath(path), expected) << path;
  const std::pair<const char*, const char*> names[] = {{"/a/b/c", "/a/b"}, {"/a", "/"}, {"a", "/"},
                                                       {"/a/b/", "/a/b"},  {"/", "/"},  {"", "/"}};
  for (const auto& [path, expected] : names) EXPECT_EQ(getPathName(path), expected) << path;
}
