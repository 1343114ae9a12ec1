#include <string>

#include "VemraExtensionProperty/boot/special_properties.h"
#include "VemraExtensionProperty/cota/cota_image.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"

namespace android {
namespace init {

PropertyMap InitExtensionPropertyImpl::handOverImageProperties(const std::string& root,
                                                               bool as_carrier,
                                                               PropertyApplyCallback cb) {
  PropertyMap map;
  loadRootProperties(root, &map);
  if (as_carrier) CarryOverImageIdentity(&map);
  HandOverIfNotEmpty(cb, kApplyOrdinary, map);
  return map;
}

void InitExtensionPropertyImpl::loadCotaOverrideProperties(PropertyApplyCallback cb) {
  const std::string root = VerifiedCotaImageRoot();
  if (root.empty()) return;
  handOverImageProperties(root, true, cb);
  loadSpecialProperties(cb);
}

}  // namespace init
}  // namespace android
