#include "VemraExtensionProperty/boot/channel_info_restore.h"

#include <unistd.h>

#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/carrier/shared_state_files.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kRecopyPreload[] = "persist.sys.recopy.preload.vminstalled";
constexpr char kRemoveRegionApk[] = "persist.sys.remove.region.apk";
constexpr char kRemoveCarrierApk[] = "persist.sys.remove.carrier.apk";
constexpr char kRemoveRegionAllApk[] = "persist.sys.remove.region-all.apk";
constexpr char kChannelCountryInfo[] = "persist.sys.channel.country.info";
constexpr char kRebootTimeCount[] = "persist.sys.reboot.time.count";

// The resets that the host is to store.
void CollectChannelReset(PropertyMap* map) {
  const std::string remove_region = ReadSystemProperty(kRemoveRegionApk);
  const std::string remove_carrier = ReadSystemProperty(kRemoveCarrierApk);
  const std::string channel = ReadSystemProperty(kChannelInfo);
  const std::string channel_country = ReadSystemProperty(kChannelCountryInfo);
  const std::string remove_region_all = ReadSystemProperty(kRemoveRegionAllApk);

  if (!channel.empty()) map->emplace(kChannelInfo, "");
  if (!channel_country.empty()) map->emplace(kChannelCountryInfo, "");
  if (remove_region.empty() && remove_carrier.empty() && remove_region_all.empty()) {
    map->emplace(kRecopyPreload, "none");
    return;
  }
  map->emplace(kRemoveRegionApk, "false");
  map->emplace(kRecopyPreload, "true");
  map->emplace(kRebootTimeCount, "0");
  map->emplace(kRemoveCarrierApk, "false");
  map->emplace(kRemoveRegionAllApk, "false");
}

void RestoreChannelInfo(PropertyMap* map, PropertyApplyCallback cb) {
  CollectChannelReset(map);
  cb(kApplyPersistentRecord, *map);
  for (const char* path : {kEmptyAppChannelFile, kSimSwitchCommonFile, kDataCommonFile}) {
    if (access(path, F_OK) != 0) continue;
    if (unlink(path) != 0) LOG(ERROR) << "unlink() failed for " << path;
  }
}

// A file that exists is handed over even where it could not be read.
void ReplayChannelFile(const char* path, const char* failure_text, PropertyMap* map,
                       PropertyApplyCallback cb) {
  if (LoadPropertyFileIfPresent(path, failure_text, map) == FileLoad::kMissing) return;
  cb(kApplyOrdinary, *map);
}

}  // namespace

void checkAndRestoreChannelInfo(PropertyApplyCallback cb) {
  // One map for the whole call: what was handed over once is handed over again with what follows.
  PropertyMap map;
  const bool emergency_shutdown = IsSystemPropertyOne(kEmergencyShutdown);
  const bool recopy_flag_set = !ReadSystemProperty(kRecopyPreload).empty();
  if (emergency_shutdown && !recopy_flag_set) {
    RestoreChannelInfo(&map, cb);
  } else {
    ReplayChannelFile(kEmptyAppChannelFile, "reboot empty appchanel property failed:", &map, cb);
  }
  // After a restore the file is there only if it could not be deleted.
  ReplayChannelFile(kDataCommonFile, "reboot data common property failed:", &map, cb);
}

}  // namespace init
}  // namespace android
