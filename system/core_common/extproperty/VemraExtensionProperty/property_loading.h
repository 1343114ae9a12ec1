#pragma once

#include <string>

#include "extproperty/init_extension_property.h"

// The steps that the loaders share: getting a property file into a map and a map to the host.
namespace android {
namespace init {

// Adds the properties of the file `path` to `map`. Where the file cannot be read, logs
// `failure_text` followed by the path at ERROR and returns false.
bool LoadPropertyFile(const std::string& path, const char* failure_text, PropertyMap* map);

enum class FileLoad { kMissing, kLoaded, kFailed };

// As LoadPropertyFile, but a file that does not exist is no failure and is not logged.
FileLoad LoadPropertyFileIfPresent(const std::string& path, const char* failure_text,
                                   PropertyMap* map);

// Returns true where there is certainly no file at `path`, nor behind a link there. False also
// where the system cannot tell.
bool IsKnownToBeMissing(const char* path);

// Returns the value of `name` in `map`, or null where the map does not hold it. The map owns the
// value.
const std::string* FindProperty(const PropertyMap& map, const char* name);

// The meaning of a hand-over to the host.
enum ApplyMode : int {
  kApplyOrdinary = 0,
  kApplyCompanyUpdate = 1,
  kApplyPersistentRecord = 2,
};

// Hands the host a copy of `map`, unless it is empty.
void HandOverIfNotEmpty(PropertyApplyCallback cb, ApplyMode mode, const PropertyMap& map);

}  // namespace init
}  // namespace android
