#pragma once

namespace android {
namespace init {

// Returns true where the device was shut down in the emergency-call state before this boot.
bool WasEmergencyShutdown();

}  // namespace init
}  // namespace android
