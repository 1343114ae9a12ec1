#include <unistd.h>

#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/carrier/legacy_key_conversion.h"
#include "VemraExtensionProperty/carrier/nv_ssv_carrier_key.h"
#include "VemraExtensionProperty/carrier/shared_state_files.h"
#include "VemraExtensionProperty/carrier/sim_switch_state_file.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kDataFirstCopy[] = "/data/system/customize/sim_switch/sim_switch_first_file";
constexpr char kDataCurrentCopy[] = "/data/system/customize/sim_switch/sim_switch_current_file";
constexpr char kFlashbackFile[] = "/mnt/vendor/vemrareserve/system/flag/flashback.cfg";
constexpr char kFlashbackCompany[] = "ro.sys.customize.flashback.company";
constexpr char kKeyFailure[] = "sim switch key property failed:";

void AssignIfPresent(const PropertyMap& map, const char* property, std::string* key) {
  if (const std::string* value = FindProperty(map, property)) *key = *value;
}

void LoadSimActionFile(PropertyMap* map) {
  if (access(kSimActionFile, F_OK) != 0) return;
  LOG(INFO) << "read ssv file";
  LoadPropertyFile(kSimActionFile, "read ssv failed :", map);
}

void LoadFlashback(PropertyMap* map) {
  if (LoadPropertyFileIfPresent(kFlashbackFile, "flash back property failed:", map) !=
      FileLoad::kMissing) {
    return;
  }
  if (ReadSystemProperty(kFlashbackCompany).empty()) map->emplace(kFlashbackCompany, "invalid");
}

}  // namespace

void InitExtensionPropertyImpl::loadExtensionSimswitchKeyInfo(PropertyMap* map) {
  if (oldNvKey.empty() && nvTargetKey.empty()) load_old_nv_key(&oldNvKey, &nvTargetKey);

  LoadPropertyFileIfPresent(kSimSwitchConvertFile, "sim switch convert property load failed:", map);
  // Asked before the sim action file is read: that file cannot mark the conversion.
  const bool converted = IsLegacyKeyConverted(*map);
  LoadSimActionFile(map);
  if (!converted && IsKnownToBeMissing(kSimSwitchFirstFile.path)) {
    if (ssvKey.empty()) read_old_ssv_key(&ssvKey);
    ConvertLegacyKey(oldNvKey, ssvKey, *map);
  }

  LoadOrUpgradeStateFile(kSimSwitchFirstFile, map, &simSwitchFirstKey);
  LoadOrUpgradeStateFile(kSimSwitchCurrentFile, map, &simSwitchCurrentKey);

  LoadPropertyFileIfPresent(kDataCurrentCopy, kKeyFailure, map);
  LoadPropertyFileIfPresent(kSimSwitchCommonFile, "reboot count key property failed:", map);
  LoadPropertyFileIfPresent(kDataFirstCopy, kKeyFailure, map);
  if (LoadPropertyFileIfPresent(kDataCommonFile, kKeyFailure, map) == FileLoad::kLoaded) {
    AssignIfPresent(*map, kChannelInfo, &channelInfo);
  }
  LoadPropertyFileIfPresent(kForceConnectFile, "force connect internet property failed:", map);
  LoadFlashback(map);

  // Once more: the copies under /data, loaded since, take precedence over the reserve files.
  AssignIfPresent(*map, kSimSwitchFirst, &simSwitchFirstKey);
  AssignIfPresent(*map, kSimSwitchCurrent, &simSwitchCurrentKey);
}

}  // namespace init
}  // namespace android
