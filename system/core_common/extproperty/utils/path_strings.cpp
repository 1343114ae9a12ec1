#include "utils/path_strings.h"

#include <string>

namespace android {
namespace init {

namespace {

void EnsureLeadingSlash(std::string* path) {
  if (path->empty() || path->front() != '/') path->insert(path->begin(), '/');
}

}  // namespace

std::string trimPath(std::string path) {
  EnsureLeadingSlash(&path);
  if (path.back() == '/') path.pop_back();
  return path;
}

std::string getPathName(std::string path) {
  EnsureLeadingSlash(&path);
  path.resize(path.rfind('/') + 1);
  if (path.size() < 2) return path;
  path.pop_back();
  return path;
}

}  // namespace init
}  // namespace android
