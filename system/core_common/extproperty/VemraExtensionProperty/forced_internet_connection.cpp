#include "VemraExtensionProperty/forced_internet_connection.h"

#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/data_files.h"
#include "VemraExtensionProperty/emergency_shutdown.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/file_io.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kForceConnect[] = "ro.vemra.internet.force.connect";
constexpr char kMayForceConnect[] = "ro.vemra.internet.whether.force.connect";

}  // namespace

void forceInternetConnection(PropertyApplyCallback cb) {
  const bool emergency_shutdown = WasEmergencyShutdown();
  const bool already_decided = !ReadSystemProperty(kForceConnect).empty();
  const bool allowed = IsSystemPropertyOne(kMayForceConnect);
  if (!emergency_shutdown || !allowed || already_decided) return;

  const auto written = WriteFile(kForceConnectFile, std::string(kForceConnect) + "=1\n");
  if (!written.ok()) {
    LOG(ERROR) << "Unable to write force_connect_internet_prop_file_path " << written.error();
  }
  cb(kApplyOrdinary, PropertyMap{{kForceConnect, "1"}});
}

}  // namespace init
}  // namespace android
