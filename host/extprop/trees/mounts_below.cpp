#include "host/extprop/trees/mounts_below.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <fcntl.h>
#include <mntent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <set>

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::StartsWith;

bool IsMountRoot(const std::string& path) {
  struct statx about;
  constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  return statx(AT_FDCWD, path.c_str(), kFlags, STATX_TYPE, &about) == 0 &&
         (about.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

bool IsWorkstationsOwn(const std::string& path) {
  const std::string whole = path + "/";
  return StartsWith(whole, "/proc/") || StartsWith(whole, "/sys/") || StartsWith(whole, "/dev/");
}

// Returns each mount's path relative to the directory, "/...", without a mount that another one
// hides.
Result<std::set<std::string>> MountsBelow(const std::string& directory) {
  constexpr const char* kTable = "/proc/self/mounts";
  const std::unique_ptr<FILE, int (*)(FILE*)> table(setmntent(kTable, "re"), endmntent);
  if (table == nullptr) return ErrnoError() << "cannot read " << kTable;
  std::set<std::string> mounts;
  mntent entry;
  // Two paths of up to 4 KiB stand in a line, and a blank of theirs as four characters.
  std::string line(1 << 16, '\0');
  while (getmntent_r(table.get(), &entry, line.data(), static_cast<int>(line.size())) != nullptr) {
    const std::string path = entry.mnt_dir;
    if (StartsWith(path, directory + "/") && IsMountRoot(path)) {
      mounts.insert(path.substr(directory.size()));
    }
  }
  return mounts;
}

}  // namespace

Result<void> ShowWithMounts(const std::string& place, const std::string& directory,
                            sandbox::PrivateRootOptions* root) {
  std::string whole;
  if (!android::base::Realpath(directory, &whole)) return ErrnoError() << directory;
  const std::string from = whole == "/" ? "" : whole;
  const std::string to = place == "/" ? "" : place;
  Result<std::set<std::string>> mounts = MountsBelow(from);
  if (!mounts.ok()) return mounts.error();
  const auto add = [&](const std::string& path) {
    if (!IsWorkstationsOwn(path)) root->layers.push_back({to + path, from + path});
  };
  if (geteuid() == 0 || mounts->empty()) {
    if (place == "/") {
      root->tree = whole;
    } else {
      root->layers.push_back({place, whole});
    }
    for (const std::string& path : *mounts) add(path);
    return {};
  }
  std::set<std::string> ways;  // the directories with a mount below them
  for (std::string way : *mounts) {
    while (!way.empty()) {
      way.resize(way.rfind('/'));
      ways.insert(way);
    }
  }
  for (const std::string& way : ways) {
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(from + way, ignored)) {
      const std::string path = way + "/" + entry.path().filename().string();
      if (ways.count(path) == 0) add(path);
    }
  }
  return {};
}

}  // namespace extprop
