#include "VemraExtensionProperty/boot/display_version_name.h"

#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/boot/version_text.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kCotaVersionName[] = "ro.build.cota.version_name";
constexpr char kPlainType[] = "P";
constexpr char kCotaType[] = "CT";
constexpr char kDefaultAndroidVersion[] = "T";
constexpr size_t kTypeTagLength = 2;

// The last fields of a COTA version name, which are joined by "_": Android letter, kind, number.
struct CotaVersion {
  std::string type = kPlainType;
  std::string android_version = kDefaultAndroidVersion;
  std::string number;
};

// Returns false where `name` has no number field.
bool ParseCotaVersion(const std::string& name, CotaVersion* version) {
  std::string head;
  if (!SplitAtLast(name, '_', &head, &version->number)) return false;
  if (version->number.size() < 3) version->number.insert(0, 3 - version->number.size(), '0');

  std::string kind;
  if (!SplitAtLast(head, '_', &head, &kind)) return true;
  if (kind == "COTA") version->type = kCotaType;
  SplitAtLast(head, '_', nullptr, &version->android_version);
  return true;
}

void AppendCotaVersion(const CotaVersion& version, std::string* display) {
  if (version.android_version.empty()) return;
  // Throws std::out_of_range for a display name of one character, which is the contract.
  const std::string tag = display->substr(display->size() - kTypeTagLength);
  if (tag == "PM" || tag == "CT") {
    display->resize(display->size() - kTypeTagLength);
    display->append(version.type);
  }
  display->append("_" + version.android_version + version.number);
}

}  // namespace

void loadCustomizeDisplayVersionName(PropertyApplyCallback cb) {
  std::string display = ReadSystemProperty(kCustomizedDisplayVersionName);
  if (display.empty()) return;

  const std::string carrier = ReadSystemProperty(kCarrierVersionName);
  if (!carrier.empty()) {
    LOG(INFO) << "carrier version " << carrier;
    display = DisplayPartOfVersionName(carrier);
    if (display.empty()) return;
  }

  const std::string cota = ReadSystemProperty(kCotaVersionName);
  CotaVersion version;
  if (ParseCotaVersion(cota, &version)) {
    AppendCotaVersion(version, &display);
    LOG(INFO) << "cota type " << version.type << " android version: " << version.android_version
              << " cota version: " << version.number << " display version: " << display;
  }
  cb(kApplyOrdinary, PropertyMap{{kCustomizedDisplayVersionName, display}});
}

}  // namespace init
}  // namespace android
