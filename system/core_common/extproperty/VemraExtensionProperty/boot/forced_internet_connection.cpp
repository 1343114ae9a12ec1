#include "VemraExtensionProperty/boot/forced_internet_connection.h"

#include "VemraExtensionProperty/boot/channel_info_restore.h"
#include "VemraExtensionProperty/carrier/shared_state_files.h"
#include "VemraExtensionProperty/carrier/sim_switch_state_file.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kForceConnect[] = "ro.vemra.internet.force.connect";
constexpr char kMayForceConnect[] = "ro.vemra.internet.whether.force.connect";

}  // namespace

void forceInternetConnection(PropertyApplyCallback cb) {
  const bool emergency_shutdown = IsSystemPropertyOne(kEmergencyShutdown);
  const bool already_decided = !ReadSystemProperty(kForceConnect).empty();
  const bool allowed = IsSystemPropertyOne(kMayForceConnect, "");
  if (!emergency_shutdown || !allowed || already_decided) return;

  WriteStateFile(kForceConnectFile, StateFileContent(kForceConnect, "1"),
                 "Unable to write force_connect_internet_prop_file_path ");
  cb(kApplyOrdinary, PropertyMap{{kForceConnect, "1"}});
}

}  // namespace init
}  // namespace android
