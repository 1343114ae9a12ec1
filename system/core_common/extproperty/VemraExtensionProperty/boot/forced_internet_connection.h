#pragma once

#include "extproperty/init_extension_property.h"

namespace android {
namespace init {

// Forces the internet connection after a shutdown in the emergency-call state, on builds that allow
// it and where it is not set yet: records the property in the reserve partition for later boots and
// hands it to `cb` with mode 0. A failed write is logged and does not stop the hand-over.
void forceInternetConnection(PropertyApplyCallback cb);

}  // namespace init
}  // namespace android
