#include <string>

#include "VemraExtensionProperty/cota_image.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"
#include "VemraExtensionProperty/special_properties.h"

namespace android {
namespace init {

void InitExtensionPropertyImpl::loadCotaOverrideProperties(PropertyApplyCallback cb) {
  const std::string root = VerifiedCotaImageRoot();
  if (root.empty()) return;
  handOverImageProperties(root, cb);
  loadSpecialProperties(cb);
}

void InitExtensionPropertyImpl::handOverImageProperties(const std::string& root,
                                                        PropertyApplyCallback cb) {
  PropertyMap map;
  loadRootProperties(root, &map);
  CarryOverImageIdentity(&map);
  HandOverIfNotEmpty(cb, kApplyOrdinary, map);
}

}  // namespace init
}  // namespace android
