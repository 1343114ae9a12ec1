#include <string>

#include "VemraExtensionProperty/cota_image.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/special_properties.h"

namespace android {
namespace init {

void InitExtensionPropertyImpl::loadCotaOverrideProperties(PropertyApplyCallback cb) {
  const std::string root = VerifiedCotaImageRoot();
  if (root.empty()) return;
  handOverImageProperties(root, true, cb);
  loadSpecialProperties(cb);
}

}  // namespace init
}  // namespace android
