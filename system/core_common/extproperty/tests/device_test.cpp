#include "tests/device_test.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <utility>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

namespace fs = std::filesystem;

using android::base::StartsWith;
using Strings = std::vector<std::string>;

namespace {

// As "SHORT=LONG"; where one is part of another, the longer one comes first.
const char kAliases[] =
    "$carrier=ro.vemra.image.my_carrier.version_name "
    "$backup=persist.sys.vemra.company.ota.version.backup "
    "$channel=/data/system/customize/empty_appchannel_prop_file.prop "
    "$common=/data/system/customize/data_common_prop_file.prop "
    "$connect=ro.vemra.internet.force.connect $display=ro.vemra.customize.display.version_name "
    "$exported=ro.vendor.vemra.exp.version $flashback=ro.sys.customize.flashback.company "
    "$image.=ro.vemra.image.my_ $may_connect=ro.vemra.internet.whether.force.connect "
    "$module_info=/data/cota/cota_module_info.prop $mount_info=/data/cota/cota_mount_info.prop "
    "$nv_config=/mnt/vendor/vemrareserve/radio/exp_operator_switch.config "
    "$opt=persist.sys.vemra.operator.opt $recopy=persist.sys.recopy.preload.vminstalled "
    "$request=sys.cota.bind.load.properties $root=sys.cota.load.properties "
    "$shutdown=persist.sys.911.shutdown $ssv/=/mnt/vendor/vemrareserve/system/ssv/ "
    "$switch.=sys.sim.switch. $vendor/=/mnt/vendor/my_ $verify=sys.cotaimg.verify";

// The bind thread hands over and logs as well.
std::mutex g_lock;
Strings g_hand_overs, g_log;

std::string Replaced(std::string text, bool shorten) {
  std::istringstream aliases(kAliases);
  for (std::string alias, name; aliases >> std::ws && std::getline(aliases, alias, '=');) {
    aliases >> name;
    text = android::base::StringReplace(text, shorten ? name : alias, shorten ? alias : name, true);
  }
  return text;
}

void Keep(Strings* items, const std::string& item) {
  std::lock_guard<std::mutex> guard(g_lock);
  items->push_back(Replaced(item, true));
}

std::string Take(Strings* items) {
  std::lock_guard<std::mutex> guard(g_lock);
  return android::base::Join(std::exchange(*items, {}), " | ");
}

Strings Words(const std::string& text) {
  std::istringstream words(Long(text));
  return {std::istream_iterator<std::string>(words), {}};
}

// What the private root itself needs.
bool BelongsToSandbox(const std::string& path) {
  return path == "/" || path == "/dev" || StartsWith(path, "/dev/null") || path == "/proc" ||
         StartsWith(path, "/proc/");
}

}  // namespace

std::string Text(const PropertyMap& map) {
  Strings entries;
  for (const auto& [name, value] : map)
    entries.push_back(android::base::Join(Strings{name, value}, "="));
  return Replaced(android::base::Join(entries, ' '), true);
}

PropertyMap Map(const std::string& text) {
  PropertyMap map;
  for (const std::string& entry : Words(text)) {
    const size_t equals = entry.find('=');
    map[entry.substr(0, equals)] = entry.substr(equals + 1);
  }
  return map;
}

std::string Long(const std::string& text) {
  return Replaced(text, false);
}

std::vector<Strings> Table(const std::string& text) {
  std::vector<Strings> rows;
  for (const std::string& row : Words(text)) rows.push_back(android::base::Split(row, ","));
  return rows;
}

void DeviceTest::SetUp() {
  umask(0);
  for (const std::string& point : Words(MountPoints())) umount2(point.c_str(), MNT_DETACH);
  for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
    if (!BelongsToSandbox(entry.path())) fs::remove_all(entry.path());
  }
  fs::remove_all("/dev/block");
  device::ClearProperties();
  TakeHandOvers();
  TakeLog();
  android::base::SetLogger([](auto, auto severity, auto, auto, auto, const char* message) {
    Keep(&g_log, "VDIWEFF"[severity] + std::string(" ") + message);
  });
}

void DeviceTest::Write(const std::string& path, const std::string& content) {
  MakeDirectories(fs::path(Long(path)).parent_path());
  std::ofstream(Long(path), std::ios::binary) << content;
}

void DeviceTest::WriteFiles(const std::string& files) {
  for (const std::string& file : android::base::Split(files, "|")) {
    std::string path, content;
    for (const std::string& word : Words(file)) (path.empty() ? path : content) += word + "\n";
    path.pop_back();
    Write(path, content);
  }
}

void DeviceTest::MakeDirectories(const std::string& paths) {
  for (const std::string& path : Words(paths)) fs::create_directories(path);
}

void DeviceTest::Remove(const std::string& paths) {
  for (const std::string& path : Words(paths)) fs::remove_all(path);
}

bool DeviceTest::Exists(const std::string& paths) {
  bool any = false;
  for (const std::string& path : Words(paths)) any |= fs::exists(fs::symlink_status(path));
  return any;
}

std::string DeviceTest::Read(const std::string& path) {
  std::string content;
  return android::base::ReadFileToString(Long(path), &content) ? content : "<missing>";
}

std::string DeviceTest::ModeAndOwner(const std::string& path) {
  struct stat st = {};
  if (lstat(Long(path).c_str(), &st) != 0) return "<missing>";
  return android::base::StringPrintf("%04o %u:%u", st.st_mode & 07777u, st.st_uid, st.st_gid);
}

void DeviceTest::Set(const std::string& map) {
  for (const auto& [name, value] : Map(map)) device::ApplyProperty(name, value);
}

void DeviceTest::Apply(int mode, PropertyMap map) {
  for (const auto& [name, value] : map) device::ApplyProperty(name, value);
  Keep(&g_hand_overs, std::to_string(mode) + " " + Text(map));
}

std::string DeviceTest::TakeHandOvers() {
  return Take(&g_hand_overs);
}

std::string DeviceTest::TakeLog() {
  return Take(&g_log);
}

std::string DeviceTest::WithLog(const std::string& result) {
  const std::string log = TakeLog();
  return result + (result.empty() || log.empty() ? "" : " | ") + log;
}

bool DeviceTest::LogHas(const std::string& lines) {
  std::lock_guard<std::mutex> guard(g_lock);
  bool all = true;
  for (const std::string& line : android::base::Split(lines, "|")) {
    all &= std::count(g_log.begin(), g_log.end(), android::base::Trim(line)) > 0;
  }
  return all;
}

std::string DeviceTest::MountPoints() {
  std::string points;
  std::ifstream mounts("/proc/self/mountinfo");
  for (std::string line; std::getline(mounts, line);) {
    const std::string point = Words(line)[4];
    // The last mount on a point is to be taken away first.
    if (!BelongsToSandbox(point)) points.insert(0, point + " ");
  }
  return points;
}
