#pragma once

#include <string>

#include "extproperty/init_extension_property.h"

namespace android {
namespace init {

// Records that the legacy carrier key was converted, so that it never is again.
constexpr char kSimSwitchConvertFile[] =
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_convert_file";

// Returns true where `map` marks the conversion as done.
bool IsLegacyKeyConverted(const PropertyMap& map);

// Derives the first SIM-switch key from the boot carrier or a legacy key and writes it to the first
// file, which must not be there; then, only if that was written whole, marks the conversion as
// done. A first file that could not be written whole is removed, so that the next boot converts.
// Writes nothing where no mapping file knows a key. `map` tells whether the none-clear marker is
// written too. The key itself is not returned: it is read back from the file. Failures are logged.
void ConvertLegacyKey(const std::string& nv_key, const std::string& ssv_key,
                      const PropertyMap& map);

}  // namespace init
}  // namespace android
