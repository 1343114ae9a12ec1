#pragma once

#include <stddef.h>

#include <string>

#include <android-base/result.h>

#include "extproperty/init_extension_property.h"
#include "utils/file_io.h"

// The one reader of property files (build.prop format). docs/property_files.md describes the
// format.
namespace android {
namespace init {

// An import without a filter does not enter a file by the path that it is being read by already,
// and one outermost call enters files at most kMaxImportDepth deep (itself included) and
// kMaxFilesPerLoad in all, and none after it has read kMaxBytesPerLoad. An import that is refused
// for that is logged at ERROR with its path, once per outermost call, and skipped; everything else
// is loaded.
constexpr size_t kMaxImportDepth = 128;
constexpr size_t kMaxFilesPerLoad = 4096;
constexpr size_t kMaxBytesPerLoad = kMaxFileSize;

// Adds the properties of the file `filename` to `properties`, following its imports. A name that
// the map holds with another value gets the new value, with a warning: later lines, imports and
// files win.
//
// `filter`, if neither null nor empty, keeps only the names equal to it or, where it ends in "*",
// beginning with what stands before the "*"; imports are then not followed. Names and values are
// taken as they are, without a legality check. `filename` and `properties` must not be null.
//
// Returns true where `filename` itself could be read, whatever happened to its lines and imports;
// false, with a warning logged and the map unchanged, where it could not.
bool load_properties_from_file_without_se(const char* filename, const char* filter,
                                          PropertyMap* properties);

// Returns true where `name` is a non-empty text of ASCII letters, digits and ".-:@_", without a "."
// at either end or beside another ".".
bool IsLegalPropertyName(const std::string& name);

// Fails with "Property value too long" for 92 bytes or more under a name that does not begin with
// "ro.", and with "Value is not a UTF8 encoded string" for a value that is not a multibyte text in
// the process's locale.
android::base::Result<void> IsLegalPropertyValue(const std::string& name, const std::string& value);

}  // namespace init
}  // namespace android
