#include "VemraExtensionProperty/carrier/create_directory.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <string>

#include <android-base/logging.h>

namespace android {
namespace init {

namespace {

constexpr mode_t kDirectoryMode = 0771;

}  // namespace

int createDirectory(std::string path) {
  for (size_t i = 0; i < path.size(); ++i) {
    if (path[i] != '/' && path[i] != '\\') continue;
    const std::string prefix = path.substr(0, i + 1);
    if (access(prefix.c_str(), F_OK) == 0) continue;
    LOG(INFO) << "make dir: " << prefix;
    if (mkdir(prefix.c_str(), kDirectoryMode) != 0) return -1;
  }
  return 0;
}

}  // namespace init
}  // namespace android
