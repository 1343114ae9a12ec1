#pragma once

#include <initializer_list>
#include <string>

#include "extproperty/init_extension_property.h"

// The one-shot info files that the COTA updater leaves under /data/cota. docs/cota_overlay.md
// describes them.
namespace android {
namespace init {

// Describes an image, or the mount points of the modules; which, depends on the operation.
constexpr char kCotaMountInfoFile[] = "/data/cota/cota_mount_info.prop";
// Describes one module.
constexpr char kCotaModuleInfoFile[] = "/data/cota/cota_module_info.prop";

// Adds the entries of the info file `path` to `info` and deletes the file, also where it could not
// be read (logged: `failure_text` and the path). Returns false, with `missing_text` and the path
// logged, where there is no such file.
bool ConsumeInfoFile(const char* path, const char* missing_text, const char* failure_text,
                     PropertyMap* info);

// Returns the value of `key` in `info`, or the empty string.
std::string InfoValue(const PropertyMap& info, const char* key);

// The key in either file that names where to bind to.
constexpr char kBindPoint[] = "bind_point";

// What tells a system property from the other entries of an info file.
constexpr std::initializer_list<const char*> kSystemPropertyPrefixes = {"sys.", "ro."};

// Returns true where `text` begins with one of `prefixes`.
bool HasPrefix(const std::string& text, std::initializer_list<const char*> prefixes);

// Returns the entries of `info` whose keys begin with one of `prefixes`.
PropertyMap SelectByPrefix(const PropertyMap& info, std::initializer_list<const char*> prefixes);

}  // namespace init
}  // namespace android
