#pragma once

#include "extproperty/init_extension_property.h"

namespace android {
namespace init {

// "1" where the device was shut down in the emergency-call state before this boot.
constexpr char kEmergencyShutdown[] = "persist.sys.911.shutdown";

// After a shutdown in the emergency-call state, and only once, resets the sales-channel properties
// and the app-removal flags (handed to `cb` with mode 2) and deletes the three channel state files.
// Otherwise hands the channel files that an earlier boot left under /data to `cb` with mode 0; each
// hand-over repeats the entries of the ones before it.
void checkAndRestoreChannelInfo(PropertyApplyCallback cb);

}  // namespace init
}  // namespace android
