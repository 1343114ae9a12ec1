#include <unistd.h>

#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/cota/cota_info_file.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/cota_directory.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kModuleBaseProperty[] = "sys.cota.module.base.mount.point";
constexpr char kDefaultModuleBase[] = "/mnt/cota";
constexpr char kCustomizeDirectory[] = "/data/system/customize";

void CreateModuleMountPoint(const std::string& module, const std::string& mount_point,
                            const std::string& base) {
  LOG(INFO) << "bind cota module: " << module << " mount point: " << mount_point;
  if (!HasPrefix(mount_point, {base.c_str(), kCustomizeDirectory})) {
    LOG(ERROR) << "cota module wrong dir " << mount_point;
    return;
  }
  if (access(mount_point.c_str(), F_OK) == 0) return;
  if (createCotaDirectory(mount_point) != 0) {
    LOG(ERROR) << "cota creat dir " << mount_point << " failed";
  }
}

}  // namespace

void InitExtensionPropertyImpl::bindCotaBasicMountPoint(PropertyApplyCallback cb) {
  PropertyMap info;
  if (!ConsumeInfoFile(kCotaMountInfoFile, "not valid cota total module info file: ",
                       "cota total module info prop load failed:", &info)) {
    return;
  }
  const std::string base = ReadSystemProperty(kModuleBaseProperty, kDefaultModuleBase);
  for (const auto& [key, value] : info) {
    if (!HasPrefix(key, kSystemPropertyPrefixes)) CreateModuleMountPoint(key, value, base);
  }
  bindCotaModuleMountPoint(cb);
  HandOverIfNotEmpty(cb, kApplyOrdinary, SelectByPrefix(info, kSystemPropertyPrefixes));
}

}  // namespace init
}  // namespace android
