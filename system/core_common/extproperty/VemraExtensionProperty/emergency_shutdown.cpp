#include "VemraExtensionProperty/emergency_shutdown.h"

#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kEmergencyShutdown[] = "persist.sys.911.shutdown";

}  // namespace

bool WasEmergencyShutdown() {
  return IsSystemPropertyOne(kEmergencyShutdown);
}

}  // namespace init
}  // namespace android
