#include "tests/device_test.h"

#include <errno.h>
#include <time.h>

#include <atomic>
#include <filesystem>
#include <system_error>
#include <thread>

#include "VemraExtensionProperty/cota_bind_thread.h"
#include "host/watch/platform_calls.h"

namespace {

const std::string kMountInfo = "/data/cota/cota_mount_info.prop";
const std::string kModuleInfo = "/data/cota/cota_module_info.prop";
const char kRequest[] = "sys.cota.bind.load.properties";

std::atomic<int> g_polls{0};

size_t ThreadCount() {
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return static_cast<size_t>(std::distance(begin(threads), end(threads)));
}

void SleepMilliseconds(long milliseconds) {
  const timespec duration = {0, milliseconds * 1000000};
  clock_nanosleep(CLOCK_MONOTONIC, 0, &duration, nullptr);
}

// Waits until `condition` holds, for ten seconds at most.
template <typename Condition>
bool WaitFor(Condition condition) {
  for (int i = 0; i < 10000; ++i) {
    if (condition()) return true;
    SleepMilliseconds(1);
  }
  return false;
}

}  // namespace

// The library's sleep between two empty polls, which here takes a millisecond of real time.
extern "C" int nanosleep(const timespec* duration, timespec*) {
  EXPECT_EQ(duration->tv_sec, 0);
  EXPECT_EQ(duration->tv_nsec, 200000000);
  ++g_polls;
  SleepMilliseconds(1);
  return 0;
}

class CotaServiceTest : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    // A sanitizer starts a thread of its own together with the first one.
    std::thread([] {}).join();
    threads_ = ThreadCount();
    g_polls = 0;
  }
  void TearDown() override {
    // No thread may outlive its test.
    SetProperty(kRequest, "boot_mount_bind_complete");
    EXPECT_TRUE(WaitFor([&] { return ThreadCount() == threads_; }));
    DeviceTest::TearDown();
  }
  std::vector<HandOver> Command(const std::string& command) {
    service_.loadCotaServiceOverrideProperties(command, Apply);
    return TakeHandOvers();
  }
  // Posts a request word and waits until the thread has served it.
  static void Post(const std::string& word) {
    SetProperty(kRequest, word);
    EXPECT_TRUE(WaitFor([] { return device::PropertyValue(kRequest) == "null"; })) << word;
  }

  size_t threads_ = 0;
};

TEST_F(CotaServiceTest, commands_run_their_operations) {
  const HandOver forwarded = {0, {{"ro.a", "1"}}};
  for (const char* command : {"mount_and_check_load", "mount_must_load", "bind_basic_point"}) {
    Write(kMountInfo, "ro.a=1\n");
    EXPECT_EQ(Command(command), std::vector<HandOver>{forwarded}) << command;
    EXPECT_FALSE(Exists(kMountInfo));
  }
  Write(kMountInfo, "any=1\n");
  EXPECT_EQ(Command("update_cota_info"), (std::vector<HandOver>{{0, {{"any", "1"}}}}));
  Write(kModuleInfo, "");
  Command("module_bind_single");
  EXPECT_FALSE(Exists(kModuleInfo));
  TakeLog();
  for (const char* command : {"", "Mount_must_load", "check_mount "}) {
    EXPECT_TRUE(Command(command).empty());
    EXPECT_EQ(TakeLog(), std::vector<std::string>{
                             std::string("E not valid cota mount bind command:") + command});
  }
}

TEST_F(CotaServiceTest, thread_gives_up_after_a_hundred_empty_polls) {
  EXPECT_TRUE(Command("check_mount").empty());
  EXPECT_TRUE(WaitFor([&] { return ThreadCount() == threads_; }));
  EXPECT_EQ(g_polls, 100);
  EXPECT_EQ(TakeLog(), (std::vector<std::string>{"I check cota bind mount start",
                                                 "I not need do cota bind mount "}));
}

TEST_F(CotaServiceTest, thread_serves_each_request_until_it_is_told_to_stop) {
  Write("/data/cota/img/build.prop", "ro.image=1\n");
  MakeDirectories("/my_carrier");
  MakeDirectories("/mnt/cota/m");
  MakeDirectories("/my_region");
  Write(kMountInfo, "sys.cotaimg.verify=1\nsys.cota.load.properties=/data/cota/img\n");
  std::thread thread(android::init::doBindCotaMountThread, &service_, Apply);
  Post("boot_mount");
  EXPECT_EQ(TakeHandOvers().at(0), (HandOver{0, {{"ro.image", "1"}}}));
  Write(kModuleInfo, "mount_point=/mnt/cota/m\nbind_point=/my_region\nmodule_type=f\n");
  Post("module_bind_single_boot");
  EXPECT_EQ(MountPoints(), (std::vector<std::string>{"/my_region", "/my_carrier"}));
  Write(kMountInfo, "ro.basic=1\n");
  Post("bind_basic_point_boot");
  EXPECT_EQ(TakeHandOvers(), (std::vector<HandOver>{{0, {{"ro.basic", "1"}}}}));

  // Unknown words are neither served nor counted.
  SetProperty(kRequest, "Boot_mount");
  SleepMilliseconds(20);
  EXPECT_EQ(device::PropertyValue(kRequest), "Boot_mount");
  TakeLog();
  SetProperty(kRequest, "boot_mount_bind_complete");
  thread.join();
  EXPECT_TRUE(TakeLog().empty());
  EXPECT_EQ(device::PropertyValue(kRequest), "boot_mount_bind_complete");
}

TEST_F(CotaServiceTest, commands_and_thread_may_run_at_once) {
  Command("check_mount");
  std::thread other([&] {
    for (int i = 0; i < 20; ++i) service_.loadCotaServiceOverrideProperties("unknown", Apply);
  });
  Write(kModuleInfo, "");
  Post("module_bind_single_boot");
  other.join();
  EXPECT_TRUE(Exists("/data/cota"));
}

TEST_F(CotaServiceTest, refused_thread_is_an_error_that_leaves_the_object_usable) {
  struct Refusing : watch::Observer {
    watch::Verdict Before(const watch::PlatformCall& call) override {
      watch::Verdict verdict;
      verdict.fail = call.call == watch::Call::kThreadCreate;
      verdict.error = EAGAIN;
      return verdict;
    }
  } refusing;
  watch::SetObserver(&refusing);
  EXPECT_THROW(Command("check_mount"), std::system_error);
  watch::SetObserver(nullptr);
  EXPECT_TRUE(Command("unknown").empty());
  Command("check_mount");
  EXPECT_TRUE(WaitFor([] { return g_polls > 0; }));
}
