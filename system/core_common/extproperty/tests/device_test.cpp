#include "tests/device_test.h"

#include <sys/mount.h>

#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <utility>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

using android::base::StartsWith;

namespace {

// The bind thread hands over and logs as well.
std::mutex g_lock;
std::string g_handed_over, g_logged;

void Keep(std::string* items, const std::string& item) {
  std::lock_guard<std::mutex> guard(g_lock);
  *items += (items->empty() ? "" : " | ") + item;
}

std::string Take(std::string* items) {
  std::lock_guard<std::mutex> guard(g_lock);
  return std::exchange(*items, {});
}

// What the private root itself needs.
bool BelongsToSandbox(const std::string& path) {
  return path == "/" || path == "/dev" || StartsWith(path, "/dev/null") || path == "/proc" ||
         StartsWith(path, "/proc/");
}

}  // namespace

void ClearDevice() {
  for (const std::string& point : android::base::Split(MountPoints(), " ")) {
    umount2(point.c_str(), MNT_DETACH);
  }
  for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
    if (!BelongsToSandbox(entry.path())) fs::remove_all(entry.path());
  }
  fs::remove_all("/dev/block");
  device::ClearProperties();
}

void Write(const std::string& path, const std::string& content) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

std::string Read(const std::string& path) {
  std::string content;
  return android::base::ReadFileToString(path, &content) ? content : "missing";
}

std::string ModeAndOwner(const std::string& path) {
  struct stat st = {};
  if (lstat(path.c_str(), &st) != 0) return "missing";
  return android::base::StringPrintf("%04o %u:%u", st.st_mode & 07777u, st.st_uid, st.st_gid);
}

long CountEntries(const std::string& directory) {
  return std::distance(fs::directory_iterator(directory), {});
}

std::string MountPoints() {
  std::string points;
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    const std::string point = android::base::Split(line, " ")[4];
    if (!BelongsToSandbox(point)) points.insert(0, point + " ");
  }
  return android::base::Trim(points);
}

std::string Text(const PropertyMap& map) {
  std::string text;
  for (const auto& [name, value] : map) text += (text.empty() ? "" : " ") + name + "=" + value;
  return text;
}

PropertyMap Map(const std::string& text) {
  PropertyMap map;
  std::istringstream entries(text);
  for (std::string entry; entries >> entry;) {
    const size_t equals = entry.find('=');
    map[entry.substr(0, equals)] = entry.substr(equals + 1);
  }
  return map;
}

void Set(const std::string& map) {
  for (const auto& [name, value] : Map(map)) device::ApplyProperty(name, value);
}

void Apply(int mode, PropertyMap map) {
  for (const auto& [name, value] : map) device::ApplyProperty(name, value);
  Keep(&g_handed_over, std::to_string(mode) + " " + Text(map));
}

std::string HandedOver() {
  return Take(&g_handed_over);
}

std::string Logged() {
  return Take(&g_logged);
}

void DeviceTest::SetUp() {
  umask(0);
  ClearDevice();
  HandedOver();
  Logged();
  android::base::SetMinimumLogSeverity(android::base::INFO);
  android::base::SetLogger([](auto, auto severity, auto, auto, auto, const char* message) {
    Keep(&g_logged, "VDIWEFF"[severity] + std::string(" ") + message);
  });
}

void DeviceTest::TearDown() {
  EXPECT_EQ(CountEntries("/proc/self/fd"), descriptors_) << "a descriptor was left open";
}
