#include <iterator>
#include <string>

#include <android-base/strings.h>

#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kCompanyRoot[] = "/my_company";
constexpr char kCompanyDate[] = "ro.vemra.image.my_company.date";
constexpr char kAppliedCompanyDate[] = "persist.sys.vemra.company.ota.version.backup";

void EraseReadOnlyProperties(PropertyMap* map) {
  for (auto entry = map->begin(); entry != map->end();) {
    entry = android::base::StartsWith(entry->first, "ro.") ? map->erase(entry) : std::next(entry);
  }
}

}  // namespace

void InitExtensionPropertyImpl::applyCompanyUpdate(PropertyApplyCallback cb) {
  const std::string date = ReadSystemProperty(kCompanyDate);
  if (date == ReadSystemProperty(kAppliedCompanyDate)) return;

  PropertyMap props;
  loadRootProperties(kCompanyRoot, &props);
  EraseReadOnlyProperties(&props);
  HandOverIfNotEmpty(cb, kApplyCompanyUpdate, props);
  // Once the host has stored it, later boots leave the partition alone until its date changes.
  cb(kApplyPersistentRecord, PropertyMap{{kAppliedCompanyDate, date}});
}

}  // namespace init
}  // namespace android
