#include "VemraExtensionProperty/cota/cota_image.h"

#include <sys/mount.h>

#include <string>

#include "VemraExtensionProperty/boot/version_text.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kBigballDate[] = "ro.vemra.image.my_bigball.date.utc";
constexpr char kCarrierDate[] = "ro.vemra.image.my_carrier.date.utc";
constexpr char kBigballVersionName[] = "ro.vemra.image.my_bigball.version_name";
constexpr char kUnset[] = "0";

// On a call that makes a bind the kernel heeds MS_BIND alone of these: the bind is as writable as
// what it shows. The others are passed because the contract names them.
constexpr unsigned long kCotaBindFlags = MS_BIND | MS_NOATIME | MS_DIRSYNC | MS_NODEV | MS_RDONLY;

}  // namespace

std::string VerifiedCotaImageRoot() {
  const bool verified = IsSystemPropertyOne(kCotaImageVerify);
  const std::string root = ReadSystemProperty(kCotaLoadProperties, kUnset);
  return verified && root != kUnset ? root : std::string();
}

void CarryOverImageIdentity(PropertyMap* map) {
  if (const std::string* date = FindProperty(*map, kBigballDate)) map->emplace(kCarrierDate, *date);
  if (const std::string* version_name = FindProperty(*map, kBigballVersionName)) {
    map->emplace(kCarrierVersionName, *version_name);
    map->erase(kBigballVersionName);
  }
}

int BindCotaImage(const std::string& source, const std::string& target) {
  return mount(source.c_str(), target.c_str(), nullptr, kCotaBindFlags, nullptr);
}

}  // namespace init
}  // namespace android
