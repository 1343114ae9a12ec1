#include "host/extprop/trees/mounts_below.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::ErrnoError;
using android::base::Result;
using sandbox::Layer;

// Each mount's path relative to the directory, "/..." without a mount that another one hides.
using Mounts = std::set<std::string>;

// The kernel writes blanks, line ends and backslashes as three octal digits.
std::string Unescaped(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      plain += static_cast<char>(std::stoi(text.substr(i + 1, 3), nullptr, 8));
      i += 3;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

bool IsMountRoot(const std::string& path) {
  struct statx about;
  constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  return statx(AT_FDCWD, path.c_str(), kFlags, STATX_TYPE, &about) == 0 &&
         (about.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

bool IsWorkstationsOwn(const std::string& path) {
  for (const char* top : {"/proc/", "/sys/", "/dev/"}) {
    if ((path + "/").rfind(top, 0) == 0) return true;
  }
  return false;
}

Result<Mounts> MountsBelow(const std::string& directory) {
  std::string table;
  if (!android::base::ReadFileToString("/proc/self/mountinfo", &table)) {
    return ErrnoError() << "cannot read /proc/self/mountinfo";
  }
  Mounts mounts;
  for (const std::string& line : android::base::Split(table, "\n")) {
    const std::vector<std::string> fields = android::base::Split(line, " ");
    constexpr size_t kMountPoint = 4;
    if (fields.size() <= kMountPoint) continue;
    const std::string path = Unescaped(fields[kMountPoint]);
    if (path.rfind(directory + "/", 0) == 0 && IsMountRoot(path)) {
      mounts.insert(path.substr(directory.size()));
    }
  }
  return mounts;
}

bool HasMountBelow(const Mounts& mounts, const std::string& path) {
  const auto next = mounts.lower_bound(path + "/");
  return next != mounts.end() && next->rfind(path + "/", 0) == 0;
}

// Adds what the directory at `path` holds, each entry by itself.
void AddEntries(const std::string& place, const std::string& directory, const std::string& path,
                const Mounts& mounts, std::vector<Layer>* layers) {
  std::error_code ignored;
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory + path, ignored)) {
    names.insert(entry.path().filename());
  }
  for (const std::string& name : names) {
    std::string inner = path;
    inner.append("/").append(name);
    if (IsWorkstationsOwn(inner)) continue;
    if (HasMountBelow(mounts, inner)) {
      AddEntries(place, directory, inner, mounts, layers);
    } else {
      layers->push_back({place + inner, directory + inner});
    }
  }
}

}  // namespace

Result<std::vector<Layer>> LayersOf(const std::string& place, const std::string& directory) {
  std::string whole;
  if (!android::base::Realpath(directory, &whole)) return ErrnoError() << directory;
  const std::string top = whole == "/" ? "" : whole;
  Result<Mounts> mounts = MountsBelow(top);
  if (!mounts.ok()) return mounts.error();
  std::vector<Layer> layers;
  const std::string prefix = place == "/" ? "" : place;
  if (geteuid() != 0 && !mounts->empty()) {
    AddEntries(prefix, top, "", *mounts, &layers);
    return layers;
  }
  layers.push_back({place, whole});
  for (const std::string& path : *mounts) {
    if (!IsWorkstationsOwn(path)) layers.push_back({prefix + path, top + path});
  }
  return layers;
}

}  // namespace extprop
