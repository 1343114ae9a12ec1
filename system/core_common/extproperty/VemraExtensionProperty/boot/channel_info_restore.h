#pragma once

#include "extproperty/init_extension_property.h"

namespace android {
namespace init {

// The emergency-shutdown flag: "1" asks for the channel restore and lets the connection be forced.
constexpr char kEmergencyShutdown[] = "persist.sys.911.shutdown";

// Where the emergency-shutdown flag is set and the flag that the reset itself sets is not, resets
// the channel properties and the removal flags (handed to `cb` with mode 2) and deletes the three
// channel state files. Otherwise hands the channel files that an earlier boot left under /data to
// `cb` with mode 0; each hand-over repeats the entries of the ones before it.
void checkAndRestoreChannelInfo(PropertyApplyCallback cb);

}  // namespace init
}  // namespace android
