#include "tests/device_test.h"

#include <time.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace {

std::atomic<int> g_polls{0};
std::atomic<int> g_hand_overs_at_once{0};

// Waits until `condition` holds, for ten seconds at most.
template <typename Condition>
bool WaitFor(Condition condition) {
  for (int i = 0; i < 10000 && !condition(); ++i) usleep(1000);
  return condition();
}

std::string Request() {
  return device::PropertyValue("sys.cota.bind.load.properties");
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
  // Returns what the thread hands over for a request, while a command runs at the same time.
  std::string Post(const std::string& word) {
    Set("sys.cota.bind.load.properties=" + word);
    service_.loadCotaServiceOverrideProperties("unknown", Apply);
    EXPECT_TRUE(WaitFor([] { return Request() == "null"; })) << word;
    return HandedOver();
  }
  bool ThreadEnds() {
    return WaitFor([&] { return CountEntries("/proc/self/task") == threads_; });
  }

  // A sanitizer starts a thread of its own together with the first one.
  // A joined thread stays listed for a moment.
  const long threads_ = (std::thread([] {}).join(), usleep(20000), CountEntries("/proc/self/task"));
};

TEST_F(CotaServiceTest, thread_serves_requests_and_gives_up_after_a_hundred_empty_polls_in_all) {
  for (const char* path : {"/my_carrier", "/mnt", "/my_region"}) fs::create_directories(path);
  Write("/img/build.prop", "ro.image=1\n");
  g_polls = 0;
  service_.loadCotaServiceOverrideProperties("check_mount", Apply);
  EXPECT_TRUE(WaitFor([] { return g_polls >= 30; }));
  Write(kMountInfo, "sys.cotaimg.verify=1\nsys.cota.load.properties=/img\n");
  EXPECT_EQ(Post("boot_mount"),
            "0 ro.image=1 | 0 sys.cota.load.properties=/img sys.cotaimg.verify=1");
  Write(kModuleInfo, "mount_point=/img\nbind_point=/my_region\nmodule_type=f\nro.m=1\n");
  EXPECT_EQ(Post("module_bind_single_boot"), "0 ro.m=1");
  Write(kMountInfo, "ro.basic=1\n");
  EXPECT_EQ(Post("bind_basic_point_boot"), "0 ro.basic=1");
  // An unknown word is neither served nor counted.
  Set("sys.cota.bind.load.properties=Boot_mount");
  usleep(20000);
  EXPECT_EQ(Request(), "Boot_mount");
  Set("sys.cota.bind.load.properties=");
  EXPECT_TRUE(ThreadEnds());
  EXPECT_EQ(g_polls, 100);
  EXPECT_THAT(Logged(), testing::EndsWith(" | I not need do cota bind mount "));
  Set("sys.cota.bind.load.properties=boot_mount_bind_complete");
  service_.loadCotaServiceOverrideProperties("check_mount", Apply);
  EXPECT_TRUE(ThreadEnds());
  EXPECT_EQ(Logged(), "I check cota bind mount start");
}

TEST_F(CotaServiceTest, commands_of_two_threads_take_turns) {
  Write(kMountInfo, "a=1\n");
  Write(kModuleInfo, "mount_point=/data\nbind_point=/data\nmodule_type=f\nro.m=1\n");
  const auto slow_host = [](int mode, PropertyMap map) {
    EXPECT_EQ(++g_hand_overs_at_once, 1) << "another command runs";
    usleep(100000);
    --g_hand_overs_at_once;
    Apply(mode, map);
  };
  std::thread other(
      [&] { service_.loadCotaServiceOverrideProperties("module_bind_single", slow_host); });
  service_.loadCotaServiceOverrideProperties("update_cota_info", slow_host);
  other.join();
  EXPECT_THAT(HandedOver(), HasSubstr(" | ")) << "both have run";
}
