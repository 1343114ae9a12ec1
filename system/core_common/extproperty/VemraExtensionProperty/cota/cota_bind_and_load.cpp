#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/boot/display_version_name.h"
#include "VemraExtensionProperty/boot/special_properties.h"
#include "VemraExtensionProperty/cota/cota_image.h"
#include "VemraExtensionProperty/cota/cota_info_file.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kVerified[] = "1";
constexpr char kMissingText[] = "not valid cota mount info file: ";
constexpr char kFailureText[] = "cota info prop load failed:";

// Returns where the image's files are to be read from: the target, or the image itself where it
// could not be bound.
std::string BindImage(const std::string& image, const std::string& target) {
  if (image == target) return target;
  const int result = BindCotaImage(image, target);
  if (result == 0) return target;
  LOG(ERROR) << "cota bindAndLoadCotaOverrideProperties bind failed: " << result;
  return image;
}

}  // namespace

void InitExtensionPropertyImpl::bindAndLoadCotaOverrideProperties(PropertyApplyCallback cb) {
  PropertyMap info;
  if (!ConsumeInfoFile(kCotaMountInfoFile, kMissingText, kFailureText, &info)) return;

  const std::string image = InfoValue(info, kCotaLoadProperties);
  const std::string* bind_point = FindProperty(info, kBindPoint);
  // "persisit." is the contract's spelling: "persist." properties are not forwarded.
  PropertyMap props = SelectByPrefix(info, {"sys.", "ro.", "persisit."});
  if (InfoValue(info, kCotaImageVerify) != kVerified || image.empty() || image.front() != '/') {
    HandOverIfNotEmpty(cb, kApplyOrdinary, props);
    return;
  }

  const std::string root =
      BindImage(image, bind_point == nullptr ? kCarrierMountPoint : *bind_point);
  // The info file's own entry, where the image came from, is what the host gets.
  props.emplace(kCotaLoadProperties, root);

  const bool is_carrier = root == kCarrierMountPoint;
  const PropertyMap map = handOverImageProperties(root, is_carrier, cb);
  if (FindProperty(map, kCustomMediaSource) != nullptr) rebindCustomizeMediaPath();
  HandOverIfNotEmpty(cb, kApplyOrdinary, props);
  if (is_carrier) {
    loadSpecialProperties(cb);
    loadCustomizeDisplayVersionName(cb);
  }
}

void InitExtensionPropertyImpl::updateCotaInfoProperties(PropertyApplyCallback cb) {
  PropertyMap info;
  if (!ConsumeInfoFile(kCotaMountInfoFile, kMissingText, kFailureText, &info)) return;
  if (info.empty()) return;
  cb(kApplyOrdinary, info);
  loadCustomizeDisplayVersionName(cb);
}

}  // namespace init
}  // namespace android
