#include "tests/device_test.h"

#include <time.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <thread>

namespace {

std::atomic<int> g_polls{0};

long ThreadCount() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

// Waits until `condition` holds, for ten seconds at most.
template <typename Condition>
bool WaitFor(Condition condition) {
  for (int i = 0; i < 10000 && !condition(); ++i) usleep(1000);
  return condition();
}

}  // namespace

// The library's sleep between two empty polls, which here takes a millisecond of real time.
extern "C" int nanosleep(const timespec* duration, timespec*) {
  EXPECT_TRUE(duration->tv_sec == 0 && duration->tv_nsec == 200000000);
  ++g_polls;
  return usleep(1000);
}

class CotaServiceTest : public DeviceTest {
 protected:
  void Command(const std::string& command) {
    service_.loadCotaServiceOverrideProperties(command, Apply);
  }
  // Returns what the thread hands over for a request, while a command runs at the same time.
  std::string Post(const std::string& word, const std::string& files) {
    WriteFiles(files);
    Set("$request=" + word);
    Command("unknown");
    EXPECT_TRUE(WaitFor([] { return Request() == "null"; })) << word;
    return TakeHandOvers();
  }
  static std::string Request() { return device::PropertyValue(Long("$request")); }
  bool ThreadEnds() {
    return WaitFor([&] { return ThreadCount() == threads_; });
  }

  // A sanitizer starts a thread of its own together with the first one.
  // A joined thread stays listed for a moment.
  const long threads_ = (std::thread([] {}).join(), usleep(20000), ThreadCount());
};

TEST_F(CotaServiceTest, thread_gives_up_after_a_hundred_empty_polls) {
  g_polls = 0;
  Command("Check_mount");
  Command("check_mount");
  EXPECT_TRUE(WaitFor([] { return g_polls >= 100; }));
  EXPECT_TRUE(ThreadEnds());
  EXPECT_EQ(g_polls, 100);
  EXPECT_EQ(TakeLog(),
            "E not valid cota mount bind command:Check_mount | I check cota bind mount start | I "
            "not need do cota bind mount ");
}

TEST_F(CotaServiceTest, thread_serves_each_request_until_it_is_told_to_stop) {
  MakeDirectories("/my_carrier /mnt/cota/m /my_region");
  Command("check_mount");
  EXPECT_EQ(Post("boot_mount", "/img/build.prop ro.image=1 | $mount_info $verify=1 $root=/img"),
            "0 ro.image=1 | 0 $root=/img $verify=1");
  EXPECT_EQ(Post("module_bind_single_boot",
                 "$module_info mount_point=/img bind_point=/my_region module_type=f ro.m=1"),
            "0 ro.m=1");
  EXPECT_EQ(MountPoints(), "/my_region /my_carrier ");
  EXPECT_EQ(Post("bind_basic_point_boot", "$mount_info ro.basic=1"), "0 ro.basic=1");
  // Unknown words are neither served nor counted.
  Set("$request=Boot_mount");
  usleep(20000);
  EXPECT_EQ(Request(), "Boot_mount");
  TakeLog();
  Set("$request=boot_mount_bind_complete");
  EXPECT_TRUE(ThreadEnds());
  EXPECT_EQ(WithLog(Request()), "boot_mount_bind_complete");
}
