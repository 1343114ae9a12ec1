#pragma once

#include <string>

namespace android {
namespace init {

constexpr char kCustomizedDisplayVersionName[] = "ro.vemra.customize.display.version_name";
constexpr char kCarrierVersionName[] = "ro.vemra.image.my_carrier.version_name";

// Splits `text` at its last `separator`. Returns false, with the outputs untouched, where there is
// none or only one at the first position, which counts as none. Outputs may be null.
bool SplitAtLast(const std::string& text, char separator, std::string* head, std::string* tail);

// Returns the part of a version name after its last "-", or the whole name where SplitAtLast finds
// none. The part is empty for a name of two bytes or more that ends in "-".
std::string DisplayPartOfVersionName(const std::string& version_name);

}  // namespace init
}  // namespace android
