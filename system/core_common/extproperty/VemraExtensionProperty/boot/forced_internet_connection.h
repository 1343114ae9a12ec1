#pragma once

#include "extproperty/init_extension_property.h"

namespace android {
namespace init {

// Forces the internet connection where the emergency-shutdown flag is set, the build allows it and
// it is not decided yet: records the property in the reserve partition for later boots and
// hands it to `cb` with mode 0. A failed write is logged and does not stop the hand-over.
void forceInternetConnection(PropertyApplyCallback cb);

}  // namespace init
}  // namespace android
