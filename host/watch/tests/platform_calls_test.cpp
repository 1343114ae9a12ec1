#include "host/watch/platform_calls.h"

#include <android-base/stringprintf.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <thread>

#include "host/platform/system_properties.h"
#include "host/sandbox/private_root.h"
#include "host/sandbox/tests/temp_tree.h"
#include "system/core_common/extproperty/VemraExtensionProperty/carrier/nv_ssv_carrier_key.h"
#include "system/core_common/extproperty/VemraExtensionProperty/init_extension_property_impl.h"
#include "system/core_common/extproperty/utils/cota_directory.h"
#include "system/core_common/extproperty/utils/file_io.h"

namespace {

namespace fs = std::filesystem;
using android::base::StringPrintf;
using android::init::InitExtensionPropertyImpl;
using android::init::ReadFile;
using android::init::WriteFile;
using watch::PlatformCall;

std::string Flags(unsigned long flags) {
  return StringPrintf(" flags %lx", flags);
}

const std::string kForReading = Flags(O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
const std::string kForWriting =
    " mode 600" + Flags(O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC);

// Tells each call in a line while it lives.
class Recorder : public watch::Observer {
 public:
  Recorder() { watch::SetObserver(this); }
  ~Recorder() override { watch::SetObserver(nullptr); }

  watch::Verdict Before(const PlatformCall& call) override {
    if (call.call == watch::Call::kLchown) return {false, 0, 0, true};
    if (!in_pieces || call.count == 0) return {};
    interrupt_ = !interrupt_;
    return {interrupt_, EINTR, 2};
  }

  void After(const PlatformCall& call, long result, int error) override {
    // What an observer does itself, or through the library, is not reported to it.
    EXPECT_EQ(access("/", F_OK), 0);
    EXPECT_TRUE(ReadFile("/proc/self/comm").ok());
    seen += watch::CallName(call.call);
    for (const std::string& text : {call.path, call.source})
      seen += (text.empty() ? "" : " ") + text;
    if (call.count > 0) seen += StringPrintf(" %zu = %ld", call.count, result);
    if (call.call == watch::Call::kLchown) seen += StringPrintf(" %u:%u", call.owner, call.group);
    if (call.mode != 0) seen += StringPrintf(" mode %o", call.mode);
    if (call.flags != 0) seen += Flags(call.flags);
    if (result == 0 && error != 0) seen += ", refused with";
    if (result < 0 || error != 0) seen += std::string(" ") + strerrorname_np(error);
    seen += '\n';
  }

  bool in_pieces = false;
  std::string seen;

 private:
  bool interrupt_ = false;
};

TEST(platform_calls, of_the_library_are_seen_and_continued_where_interrupted_or_short) {
  TempTree tree;
  const std::string file = tree / "file";
  Recorder recorder;
  recorder.in_pieces = true;
  ASSERT_TRUE(WriteFile(file, "abc").ok());
  ASSERT_EQ(*ReadFile(file), "abc");
  ASSERT_FALSE(ReadFile(tree / "missing").ok());
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
  EXPECT_EQ(recorder.seen,
            "open " + file + kForWriting +
                "\nwrite 3 = -1 EINTR\nwrite 3 = 2\nwrite 1 = -1 EINTR\nwrite 1 = 1\n"
                "open " +
                file + kForReading +
                "\nfstat\nread 1024 = -1 EINTR\nread 1024 = 2\nread 1024 = -1 EINTR\n"
                "read 1024 = 1\nread 1024 = -1 EINTR\nread 1024 = 0\n"
                "open " +
                tree / "missing" + kForReading + " ENOENT\n");
}

TEST(platform_calls, of_anyone_else_are_not_seen) {
  TempTree tree;
  Recorder recorder;
  std::string content;
  EXPECT_TRUE(android::base::WriteStringToFile("abc", tree / "file"));
  EXPECT_TRUE(android::base::ReadFileToString(tree / "file", &content));
  EXPECT_EQ(mkdir((tree / "directory").c_str(), 0700), 0);
  EXPECT_EQ(std::distance(fs::directory_iterator(tree.path()), {}), 2);
  std::thread([] { device::ApplyProperty("a", "b"); }).join();
  watch::SetObserver(nullptr);
  EXPECT_TRUE(ReadFile(tree / "file").ok());
  EXPECT_EQ(recorder.seen, "");
}

// Calls that the library makes at absolute paths only, and through other libraries.
TEST(platform_calls, at_device_paths_and_through_other_libraries) {
  const std::string ssv_file = "/mnt/vendor/vemrareserve/system/ssv/sim_action_file";
  TempTree tree;
  tree.Write("data/file", "");
  tree.Write(ssv_file, "31000000");
  const auto status = sandbox::RunInPrivateRoot({tree.path()}, [&] {
    Recorder recorder;
    std::string key;
    android::init::read_old_ssv_key(&key);
    EXPECT_EQ(key, "31000000");
    EXPECT_EQ(recorder.seen.find("access " + ssv_file + "\nopen " + ssv_file + kForReading +
                                 "\nfstat\nread "),
              0u);

    recorder.seen.clear();
    EXPECT_EQ(android::init::createCotaDirectory("/data/cota"), 0);
    android::init::IInitExtensionProperty* service = KSSI_FETCH_IInitExtensionProperty("test");
    device::ApplyProperty("ro.sys.custommedia.sourcepath", "/data/cota");
    service->bindCustomizeMediaPath("/my_carrier/media");
    android::init::PropertyMap properties;
    static_cast<InitExtensionPropertyImpl*>(service)->loadPropertiesFromDir("/data", &properties);
    EXPECT_EQ(recorder.seen,
              "access /data\nmkdir /data/cota mode 755\nlchown /data/cota 0:0\n"
              "mount /my_carrier/media /data/cota" +
                  Flags(MS_BIND | MS_REC) +
                  " ENOENT\n"
                  "property_set sys.mount.mediapath.success -1\n"
                  "opendir /data\nreaddir\nreaddir\nreaddir\nreaddir\nreaddir 0\n");

    recorder.seen.clear();
    EXPECT_TRUE(chmod("/data", 0777) == 0 && seteuid(65534) == 0);
    EXPECT_EQ(android::init::createCotaDirectory("/data/as_ordinary_user"), 0);
    EXPECT_EQ(recorder.seen,
              "access /data\nmkdir /data/as_ordinary_user mode 755\n"
              "lchown /data/as_ordinary_user 0:0, refused with EPERM\n");
    return testing::Test::HasFailure();
  });
  ASSERT_TRUE(status.ok()) << status.error();
  EXPECT_EQ(*status, 0);
}

}  // namespace
