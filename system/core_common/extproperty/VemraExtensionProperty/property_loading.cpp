#include "VemraExtensionProperty/property_loading.h"

#include <errno.h>
#include <unistd.h>

#include <string>

#include <android-base/logging.h>

#include "utils/property_file_parser.h"

namespace android {
namespace init {

bool LoadPropertyFile(const std::string& path, const char* failure_text, PropertyMap* map) {
  if (load_properties_from_file_without_se(path.c_str(), nullptr, map)) return true;
  LOG(ERROR) << failure_text << path;
  return false;
}

FileLoad LoadPropertyFileIfPresent(const std::string& path, const char* failure_text,
                                   PropertyMap* map) {
  if (access(path.c_str(), F_OK) != 0) return FileLoad::kMissing;
  return LoadPropertyFile(path, failure_text, map) ? FileLoad::kLoaded : FileLoad::kFailed;
}

bool IsKnownToBeMissing(const char* path) {
  return access(path, F_OK) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

const std::string* FindProperty(const PropertyMap& map, const char* name) {
  const auto found = map.find(name);
  return found == map.end() ? nullptr : &found->second;
}

void HandOverIfNotEmpty(PropertyApplyCallback cb, ApplyMode mode, const PropertyMap& map) {
  if (!map.empty()) cb(mode, map);
}

}  // namespace init
}  // namespace android
