#include <mutex>
#include <string>
#include <thread>

#include <android-base/logging.h>

#include "VemraExtensionProperty/cota/cota_bind_thread.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"

namespace android {
namespace init {

void InitExtensionPropertyImpl::loadCotaServiceOverrideProperties(std::string command,
                                                                  PropertyApplyCallback cb) {
  std::lock_guard<std::mutex> guard(mutex_);
  if (command == "check_mount") {
    std::thread(doBindCotaMountThread, this, cb).detach();
  } else if (command == "mount_and_check_load" || command == "mount_must_load") {
    // Two words for one operation, by intention.
    bindAndLoadCotaOverrideProperties(cb);
  } else if (command == "bind_basic_point") {
    bindCotaBasicMountPoint(cb);
  } else if (command == "update_cota_info") {
    updateCotaInfoProperties(cb);
  } else if (command == "module_bind_single") {
    bindCotaModuleMountPoint(cb);
  } else {
    LOG(ERROR) << "not valid cota mount bind command:" << command;
  }
}

}  // namespace init
}  // namespace android
