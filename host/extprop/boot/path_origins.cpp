#include "host/extprop/boot/path_origins.h"

#include <android-base/file.h>
#include <android-base/strings.h>

namespace extprop {

std::string PathOrigins::Find(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return path;
  const std::string directory = path.substr(0, slash + 1);
  auto known = directories_.find(directory);
  if (known == directories_.end()) {
    std::string real;
    if (!android::base::Realpath(directory, &real)) return path;
    if (real != "/") real += '/';
    known = directories_.emplace(directory, real).first;
  }
  std::string real = known->second + path.substr(slash + 1);
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
