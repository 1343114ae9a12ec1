#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/boot/display_version_name.h"
#include "VemraExtensionProperty/boot/special_properties.h"
#include "VemraExtensionProperty/cota/cota_image.h"
#include "VemraExtensionProperty/cota/cota_info_file.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"

namespace android {
namespace init {

namespace {

constexpr char kMountPoint[] = "mount_point";
constexpr char kModuleType[] = "module_type";
constexpr char kConfigureModule[] = "configure";

}  // namespace

void InitExtensionPropertyImpl::bindCotaModuleMountPoint(PropertyApplyCallback cb) {
  PropertyMap info;
  if (!ConsumeInfoFile(kCotaModuleInfoFile, "not valid cota module info file: ",
                       "cota module info prop load failed:", &info)) {
    return;
  }
  const std::string* type = FindProperty(info, kModuleType);
  // A module without a type has nowhere to be bound to.
  if (type == nullptr) return;
  const std::string source = InfoValue(info, kMountPoint);
  const std::string target = InfoValue(info, kBindPoint);
  if (source.empty() || target.empty()) return;

  LOG(INFO) << "cota module bind from: " << source << " to: " << target;
  const int result = BindCotaImage(source, target);
  if (result != 0) {
    LOG(ERROR) << "bindCotaModuleMountPoint bind failed: " << result;
    return;
  }
  if (*type == kConfigureModule) loadCotaConfigureModuleProperties(target, cb);
  HandOverIfNotEmpty(cb, kApplyOrdinary, SelectByPrefix(info, kSystemPropertyPrefixes));
}

void InitExtensionPropertyImpl::loadCotaConfigureModuleProperties(std::string path,
                                                                  PropertyApplyCallback cb) {
  handOverImageProperties(path, true, cb);
  loadSpecialProperties(cb);
  loadCustomizeDisplayVersionName(cb);
}

}  // namespace init
}  // namespace android
