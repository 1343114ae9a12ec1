#pragma once

#include "extproperty/init_extension_property.h"

namespace android {
namespace init {

// Derives the exported version and the customised display version name from the current system
// properties and hands each, if there is one, to `cb` on its own, with mode 0. A display version
// name that is set already is kept.
void loadSpecialProperties(PropertyApplyCallback cb);

}  // namespace init
}  // namespace android
