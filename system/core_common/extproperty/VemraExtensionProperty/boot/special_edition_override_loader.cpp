#include <android-base/logging.h>

#include "VemraExtensionProperty/boot/special_properties.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/property_file_parser.h"

namespace android {
namespace init {

namespace {

constexpr char kSpecialEditionFile[] = "/my_company/etc/build.prop";

}  // namespace

void InitExtensionPropertyImpl::loadQuasarOverrideProperties(PropertyApplyCallback cb) {
  PropertyMap map;
  if (!load_properties_from_file_without_se(kSpecialEditionFile, nullptr, &map)) {
    LOG(INFO) << "can not read prop from :" << kSpecialEditionFile;
  }
  // Handed over even when empty, unlike the maps of the other loaders.
  cb(kApplyOrdinary, map);
  loadSpecialProperties(cb);
}

}  // namespace init
}  // namespace android
