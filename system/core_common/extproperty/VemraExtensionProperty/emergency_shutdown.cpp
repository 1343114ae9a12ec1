#include "VemraExtensionProperty/emergency_shutdown.h"

#include "utils/system_property.h"

namespace android {
namespace init {

bool WasEmergencyShutdown() {
  return IsSystemPropertyOne("persist.sys.911.shutdown");
}

}  // namespace init
}  // namespace android
