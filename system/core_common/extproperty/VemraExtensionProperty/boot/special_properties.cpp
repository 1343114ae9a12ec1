#include "VemraExtensionProperty/boot/special_properties.h"

#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/boot/version_text.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kVersionSuffix[] = "ro.vendor.vemra.version_suffix";
constexpr char kBuildDisplayId[] = "ro.build.display.id";
constexpr char kExportedVersion[] = "ro.vendor.vemra.exp.version";
constexpr char kRegionVersionName[] = "ro.vemra.image.my_region.version_name";

void LoadExportedVersion(PropertyApplyCallback cb) {
  const std::string suffix = ReadSystemProperty(kVersionSuffix);
  if (suffix.empty()) return;
  std::string id = ReadSystemProperty(kBuildDisplayId);
  const size_t underscore = id.find('_');
  if (underscore == std::string::npos || underscore == 0) return;
  id.insert(underscore, suffix);
  cb(kApplyOrdinary, PropertyMap{{kExportedVersion, id}});
}

void LoadDisplayVersionName(PropertyApplyCallback cb) {
  // A name that the build or an earlier call set is never recomputed.
  if (!ReadSystemProperty(kCustomizedDisplayVersionName).empty()) return;
  std::string version_name = ReadSystemProperty(kCarrierVersionName);
  if (version_name.empty()) version_name = ReadSystemProperty(kRegionVersionName);
  if (version_name.empty()) return;

  const std::string display = DisplayPartOfVersionName(version_name);
  LOG(INFO) << "customize dispaly version " << display;
  if (display.empty()) return;
  cb(kApplyOrdinary, PropertyMap{{kCustomizedDisplayVersionName, display}});
}

}  // namespace

void loadSpecialProperties(PropertyApplyCallback cb) {
  LoadExportedVersion(cb);
  LoadDisplayVersionName(cb);
}

}  // namespace init
}  // namespace android
