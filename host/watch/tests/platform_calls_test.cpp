#include "host/watch/platform_calls.h"

#include <android-base/file.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <sstream>
#include <thread>
#include <vector>

#include "host/platform/system_properties.h"
#include "host/sandbox/private_root.h"
#include "host/sandbox/tests/temp_tree.h"
#include "system/core_common/extproperty/VemraExtensionProperty/init_extension_property_impl.h"
#include "system/core_common/extproperty/VemraExtensionProperty/nv_ssv_carrier_key.h"
#include "system/core_common/extproperty/utils/cota_directory.h"
#include "system/core_common/extproperty/utils/file_io.h"

namespace {

using android::init::InitExtensionPropertyImpl;
using android::init::ReadFile;
using android::init::WriteFile;
using watch::Call;
using watch::PlatformCall;
using watch::Verdict;
using Lines = std::vector<std::string>;

// Keeps a line for each call while it lives, and lets a function decide on them.
class Recorder : public watch::Observer {
 public:
  using Decide = std::function<Verdict(const PlatformCall&)>;

  explicit Recorder(Decide decide = [](const PlatformCall&) { return Verdict(); })
      : decide_(std::move(decide)) {
    watch::SetObserver(this);
  }
  ~Recorder() override { watch::SetObserver(nullptr); }

  Verdict Before(const PlatformCall& call) override { return decide_(call); }

  void After(const PlatformCall& call, long result, int error) override {
    // What an observer does itself, or through the library, is not reported to it.
    EXPECT_EQ(access("/", F_OK), 0);
    EXPECT_TRUE(ReadFile("/proc/self/comm").ok());
    std::ostringstream line;
    line << watch::CallName(call.call);
    for (const std::string& text : {call.path, call.source})
      line << (text.empty() ? "" : " ") << text;
    if (call.count > 0) line << " " << call.count;
    if (call.call == Call::kLchown) line << " " << call.owner << ":" << call.group;
    if (call.mode != 0) line << " mode " << std::oct << call.mode << std::dec;
    if (call.flags != 0) line << " flags " << std::hex << call.flags << std::dec;
    if (call.count > 0 || call.call == Call::kThreadCreate) line << " = " << result;
    if (result < 0) line << " " << strerrorname_np(error);
    lines.push_back(line.str());
  }

  Lines lines;

 private:
  Decide decide_;
};

std::string Hex(int flags) {
  std::ostringstream text;
  text << " flags " << std::hex << flags;
  return text.str();
}

const std::string kForReading = Hex(O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
const std::string kForWriting =
    " mode 600" + Hex(O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC);

TEST(platform_calls, of_the_library_are_seen_with_their_arguments) {
  TempTree tree;
  const std::string file = tree / "file";
  Recorder recorder;
  ASSERT_TRUE(WriteFile(file, "abc").ok());
  ASSERT_EQ(*ReadFile(file), "abc");
  ASSERT_FALSE(ReadFile(tree / "missing").ok());
  struct stat about = {};
  ASSERT_EQ(stat(file.c_str(), &about), 0);
  EXPECT_EQ(about.st_mode, S_IFREG | 0600u);
  EXPECT_EQ(recorder.lines,
            (Lines{"open " + file + kForWriting, "write 3 = 3", "open " + file + kForReading,
                   "fstat", "read 1024 = 3", "read 1024 = 0",
                   "open " + tree.path() + "/missing" + kForReading + " ENOENT"}));
}

TEST(platform_calls, of_anyone_else_are_not_seen) {
  TempTree tree;
  Recorder recorder;
  std::string content;
  EXPECT_TRUE(android::base::WriteStringToFile("abc", tree / "file"));
  EXPECT_TRUE(android::base::ReadFileToString(tree / "file", &content));
  EXPECT_EQ(mkdir((tree / "directory").c_str(), 0700), 0);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tree.path()), {}), 2);
  std::thread([] { device::ApplyProperty("a", "b"); }).join();
  EXPECT_EQ(recorder.lines, Lines());
  watch::SetObserver(nullptr);
  EXPECT_TRUE(ReadFile(tree / "file").ok());
  EXPECT_EQ(recorder.lines, Lines());
}

TEST(platform_calls, short_and_interrupted_transfers_are_continued) {
  TempTree tree;
  const auto in_pieces = [interrupt = false](const PlatformCall& call) mutable {
    Verdict verdict;
    if (call.count > 0) interrupt = !interrupt;
    verdict.fail = call.count > 0 && interrupt;
    verdict.error = EINTR;
    verdict.limit = 2;
    return verdict;
  };
  Recorder recorder(in_pieces);
  ASSERT_TRUE(WriteFile(tree / "file", "abc").ok());
  EXPECT_EQ(recorder.lines,
            (Lines{"open " + tree.path() + "/file" + kForWriting, "write 3 = -1 EINTR",
                   "write 3 = 2", "write 1 = -1 EINTR", "write 1 = 1"}));
  EXPECT_EQ(*ReadFile(tree / "file"), "abc");
}

constexpr char kSimActionFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_action_file";

// Calls that the library makes at absolute paths only, and through other libraries.
void CallAtDevicePaths() {
  Recorder recorder;
  std::string key;
  android::init::read_old_ssv_key(&key);
  EXPECT_EQ(key, "31000000");
  ASSERT_GT(recorder.lines.size(), 3u);
  EXPECT_EQ(recorder.lines[1], "open " + (kSimActionFile + kForReading));
  EXPECT_EQ(recorder.lines[2], "fstat");
  EXPECT_EQ(recorder.lines.back().substr(0, 4), "read");

  recorder.lines.clear();
  EXPECT_EQ(android::init::createCotaDirectory("/data/cota"), 0);
  EXPECT_EQ(recorder.lines,
            (Lines{"access /data", "mkdir /data/cota mode 755", "lchown /data/cota 0:0"}));

  recorder.lines.clear();
  android::init::IInitExtensionProperty* service = KSSI_FETCH_IInitExtensionProperty("test");
  device::ApplyProperty("ro.sys.custommedia.sourcepath", "/data/cota");
  service->bindCustomizeMediaPath("/my_carrier/media");
  EXPECT_EQ(recorder.lines,
            (Lines{"mount /my_carrier/media /data/cota" + Hex(MS_BIND | MS_REC) + " ENOENT",
                   "property_set sys.mount.mediapath.success -1"}));

  recorder.lines.clear();
  android::init::PropertyMap properties;
  static_cast<InitExtensionPropertyImpl*>(service)->loadPropertiesFromDir("/data", &properties);
  EXPECT_EQ(recorder.lines,
            (Lines{"opendir /data", "readdir", "readdir", "readdir", "readdir", "readdir 0"}));
}

TEST(platform_calls, at_device_paths_and_through_other_libraries) {
  TempTree tree;
  tree.Write("data/file", "");
  tree.Write(kSimActionFile, "31000000");
  const auto status = sandbox::RunInPrivateRoot({tree.path()}, [] {
    CallAtDevicePaths();
    return testing::Test::HasFailure() ? 1 : 0;
  });
  ASSERT_TRUE(status.ok()) << status.error();
  EXPECT_EQ(*status, 0);
}

}  // namespace
