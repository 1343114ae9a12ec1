#include "tests/device_test.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

namespace fs = std::filesystem;

namespace {

// The bind thread hands over and logs as well.
std::mutex g_lock;
std::vector<HandOver> g_hand_overs;
std::vector<std::string> g_log;

void KeepLogLine(android::base::LogId, android::base::LogSeverity severity, const char*,
                 const char* file, unsigned int line, const char* message) {
  if (severity < android::base::INFO) return;
  EXPECT_NE(file, nullptr);
  EXPECT_GT(line, 0u);
  std::lock_guard<std::mutex> guard(g_lock);
  g_log.push_back(std::string(1, "VDIWEFF"[severity]) + " " + message);
}

// What the private root itself needs.
bool BelongsToSandbox(const std::string& path) {
  return path == "/" || path == "/dev" || android::base::StartsWith(path, "/dev/null") ||
         path == "/proc" || android::base::StartsWith(path, "/proc/");
}

}  // namespace

void DeviceTest::SetUp() {
  umask(0);
  for (const std::string& point : MountPoints()) umount2(point.c_str(), MNT_DETACH);
  for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
    if (!BelongsToSandbox(entry.path())) fs::remove_all(entry.path());
  }
  fs::remove_all("/dev/block");
  device::ClearProperties();
  TakeHandOvers();
  TakeLog();
  android::base::SetLogger(KeepLogLine);
  android::base::SetMinimumLogSeverity(android::base::VERBOSE);
}

void DeviceTest::TearDown() {
  android::base::SetLogger(android::base::StderrLogger);
}

void DeviceTest::Write(const std::string& path, const std::string& content) {
  MakeDirectories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

void DeviceTest::MakeDirectories(const std::string& path) {
  fs::create_directories(path);
}

std::string DeviceTest::Read(const std::string& path) {
  std::string content;
  return android::base::ReadFileToString(path, &content) ? content : "<missing>";
}

bool DeviceTest::Exists(const std::string& path) {
  return fs::exists(fs::symlink_status(path));
}

std::string DeviceTest::ModeAndOwner(const std::string& path) {
  struct stat st = {};
  if (lstat(path.c_str(), &st) != 0) return "<missing>";
  return android::base::StringPrintf("%04o %u:%u", st.st_mode & 07777u, st.st_uid, st.st_gid);
}

void DeviceTest::Apply(int mode, PropertyMap map) {
  for (const auto& [name, value] : map) device::ApplyProperty(name, value);
  std::lock_guard<std::mutex> guard(g_lock);
  g_hand_overs.push_back({mode, std::move(map)});
}

std::vector<HandOver> DeviceTest::TakeHandOvers() {
  std::lock_guard<std::mutex> guard(g_lock);
  return std::exchange(g_hand_overs, {});
}

std::vector<std::string> DeviceTest::TakeLog() {
  std::lock_guard<std::mutex> guard(g_lock);
  return std::exchange(g_log, {});
}

bool DeviceTest::LogHas(const std::vector<std::string>& log, const std::string& line) {
  return std::find(log.begin(), log.end(), line) != log.end();
}

std::vector<std::string> DeviceTest::MountPoints() {
  std::vector<std::string> points;
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    std::istringstream fields(line);
    std::string id, parent, device, root, point;
    fields >> id >> parent >> device >> root >> point;
    if (!BelongsToSandbox(point)) points.push_back(point);
  }
  // The last mount on a point is to be taken away first.
  std::reverse(points.begin(), points.end());
  return points;
}
