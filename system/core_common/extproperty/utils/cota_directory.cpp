#include "utils/cota_directory.h"

#include <limits.h>
#include <selinux/android.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>

#include <android-base/logging.h>

namespace android {
namespace init {

namespace {

constexpr mode_t kCotaDirectoryMode = 0755;
constexpr uid_t kRootUser = 0;
constexpr gid_t kRootGroup = 0;

}  // namespace

int createCotaDirectory(std::string path) {
  if (path.empty()) return -1;
  const size_t slash = path.rfind('/');
  const std::string parent = slash == std::string::npos ? std::string() : path.substr(0, slash);
  LOG(INFO) << "create path: " << path << " sub dir: " << parent;
  // No path of PATH_MAX bytes can be made. This bounds the recursion too, which a thread's stack
  // has to bear.
  if (path.size() < PATH_MAX && access(parent.c_str(), F_OK) != 0) {
    const int result = createCotaDirectory(parent);
    if (result == 0) return createCotaDirectory(path);
    LOG(ERROR) << "create sub dir failed: " << parent;
    return result;
  }
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

}  // namespace init
}  // namespace android
