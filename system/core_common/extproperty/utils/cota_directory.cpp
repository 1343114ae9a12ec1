#include "utils/cota_directory.h"

#include <limits.h>
#include <selinux/android.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include <android-base/logging.h>

namespace android {
namespace init {

namespace {

constexpr mode_t kCotaDirectoryMode = 0755;
constexpr uid_t kRootUser = 0;
constexpr gid_t kRootGroup = 0;

std::string ParentOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// Makes the directory itself, whose parent is there.
int MakeDirectory(const std::string& path) {
  const int result = mkdir(path.c_str(), kCotaDirectoryMode);
  if (result != 0) {
    LOG(ERROR) << "make dir failed: " << path;
    return result;
  }
  if (lchown(path.c_str(), kRootUser, kRootGroup) == -1) {
    LOG(ERROR) << "Unable to chown file: " << path;
  }
  if (selinux_android_restorecon(path.c_str(), SELINUX_ANDROID_RESTORECON_RECURSE) < 0) {
    LOG(ERROR) << "Failed to restorecon: " << path;
  }
  return 0;
}

}  // namespace

int createCotaDirectory(std::string path) {
  // The directories that wait for their parent, the outermost call's path first. A loop, as the
  // depth of the path is the info file's and the stack may be a thread's.
  std::vector<std::string> waiting;
  for (std::string current = std::move(path);;) {
    int result = -1;
    if (!current.empty()) {
      std::string parent = ParentOf(current);
      LOG(INFO) << "create path: " << current << " sub dir: " << parent;
      // No path of PATH_MAX bytes can be made, and walking up it would log a line for every
      // component.
      if (current.size() < PATH_MAX && access(parent.c_str(), F_OK) != 0) {
        waiting.push_back(std::move(current));
        current = std::move(parent);
        continue;
      }
      result = MakeDirectory(current);
    }
    if (result == 0) {
      if (waiting.empty()) return 0;
      // Tried again from the start: it finds its parent now.
      current = std::move(waiting.back());
      waiting.pop_back();
      continue;
    }
    for (; !waiting.empty(); waiting.pop_back()) {
      LOG(ERROR) << "create sub dir failed: " << ParentOf(waiting.back());
    }
    return result;
  }
}

}  // namespace init
}  // namespace android
