#include "VemraExtensionProperty/cota/cota_info_file.h"

#include <unistd.h>

#include <string>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "VemraExtensionProperty/property_loading.h"

namespace android {
namespace init {

bool ConsumeInfoFile(const char* path, const char* missing_text, const char* failure_text,
                     PropertyMap* info) {
  if (LoadPropertyFileIfPresent(path, failure_text, info) == FileLoad::kMissing) {
    LOG(ERROR) << missing_text << path;
    return false;
  }
  unlink(path);
  return true;
}

std::string InfoValue(const PropertyMap& info, const char* key) {
  const std::string* value = FindProperty(info, key);
  return value == nullptr ? std::string() : *value;
}

bool HasPrefix(const std::string& text, std::initializer_list<const char*> prefixes) {
  for (const char* prefix : prefixes) {
    if (android::base::StartsWith(text, prefix)) return true;
  }
  return false;
}

PropertyMap SelectByPrefix(const PropertyMap& info, std::initializer_list<const char*> prefixes) {
  PropertyMap selected;
  for (const auto& entry : info) {
    if (HasPrefix(entry.first, prefixes)) selected.insert(entry);
  }
  return selected;
}

}  // namespace init
}  // namespace android
