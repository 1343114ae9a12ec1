#pragma once

#include "extproperty/init_extension_property.h"

namespace android {
namespace init {

// Recomputes the customised display version name, if one is set: takes the carrier's version name
// where the carrier partition has one, appends the Android letter and the number of the COTA
// version where one is set, and hands the result to `cb` with mode 0, at most once.
//
// Throws std::out_of_range for a display version name of one character with a COTA version to
// append.
void loadCustomizeDisplayVersionName(PropertyApplyCallback cb);

}  // namespace init
}  // namespace android
