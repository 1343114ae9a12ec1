#include "host/extprop/boot/path_origins.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <limits.h>
#include <sys/stat.h>

namespace extprop {

// Directories have most of their way in common, so each name on it is looked at only once.
const std::string& PathOrigins::RealDirectory(const std::string& directory) {
  const auto [known, is_new] = directories_.try_emplace(directory);
  std::string& real = known->second;
  if (!is_new) return real;
  const size_t above =
      directory == "/" ? std::string::npos : directory.rfind('/', directory.size() - 2);
  if (above != std::string::npos) {
    const std::string name = directory.substr(above + 1, directory.size() - above - 2);
    const std::string& parent = RealDirectory(directory.substr(0, above + 1));
    struct stat about;
    const bool is_plain = !name.empty() && name != "." && name != ".." && !parent.empty() &&
                          lstat((parent + name).c_str(), &about) == 0 && S_ISDIR(about.st_mode);
    if (is_plain) return real = parent + name + "/";
  }
  if (android::base::Realpath(directory, &real) && real != "/") real += '/';
  return real;
}

std::string PathOrigins::Find(const std::string& path) {
  if (path.size() >= PATH_MAX) return path;  // the kernel finds nothing there
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return Find("/" + path);  // init's directory is the root
  std::string real = RealDirectory(path.substr(0, slash + 1));
  if (real.empty()) return path;
  real += path.substr(slash + 1);
  for (const auto& [target, source] : mounts_) {
    if (android::base::StartsWith(real, target)) return source + real.substr(target.size());
  }
  return real;
}

void PathOrigins::AddMount(const std::string& source, const std::string& target) {
  std::string real;
  if (!android::base::Realpath(target, &real)) return;
  const std::string from = Find(source + "/");
  directories_.clear();
  mounts_.insert(mounts_.begin(), {real + "/", from});
}

}  // namespace extprop
