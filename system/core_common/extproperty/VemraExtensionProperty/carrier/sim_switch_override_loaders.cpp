#include <string>

#include "VemraExtensionProperty/boot/special_properties.h"
#include "VemraExtensionProperty/carrier/operator_carrier_key.h"
#include "VemraExtensionProperty/carrier/partition_sim_switch_properties.h"
#include "VemraExtensionProperty/carrier/shared_state_files.h"
#include "VemraExtensionProperty/carrier/sim_switch_state_file.h"
#include "VemraExtensionProperty/cota/cota_image.h"
#include "VemraExtensionProperty/extension_partition_roots.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

// A property that was cleared does not clear the key: the last known key stays in force.
void AssignIfNotEmpty(const std::string& value, std::string* key) {
  if (!value.empty()) *key = value;
}

}  // namespace

void InitExtensionPropertyImpl::loadSimSwitchOverrideProperties(PropertyApplyCallback cb) {
  AssignIfNotEmpty(ReadSystemProperty(kSimSwitchFirst), &simSwitchFirstKey);
  AssignIfNotEmpty(ReadSystemProperty(kSimSwitchCurrent), &simSwitchCurrentKey);
  AssignIfNotEmpty(OperatorCarrierKey(), &ssvKey);
  if (simSwitchFirstKey.empty() && simSwitchCurrentKey.empty() && ssvKey.empty()) {
    loadSpecialProperties(cb);
    return;
  }

  PropertyMap map;
  loadAllPartitionsSimswitchProperties(&map);
  const std::string cota_root = VerifiedCotaImageRoot();
  if (!cota_root.empty()) loadExtensionPartitionSimswitchProperties(cota_root, &map);
  HandOverIfNotEmpty(cb, kApplyOrdinary, map);
  loadSpecialProperties(cb);
}

void InitExtensionPropertyImpl::loadSimSwitchOverrideProperties(std::string action,
                                                                PropertyApplyCallback cb) {
  PropertyMap map;
  const auto load_carrier_directories = [&](const char* property, const char* kind,
                                            std::string* carrier_key) {
    AssignIfNotEmpty(ReadSystemProperty(property), carrier_key);
    for (const std::string& root : ExtensionPartitionRoots) {
      loadCarrierDirectory(root, *carrier_key, kind, &map);
    }
  };

  if (action == "simSwitchCurrent") {
    load_carrier_directories(kSimSwitchCurrent, kSimSwitchCurrentTime, &simSwitchCurrentKey);
  } else if (action == "simSwitchFirst") {
    load_carrier_directories(kSimSwitchFirst, kSimSwitchFirstTime, &simSwitchFirstKey);
  } else if (action == "updateDataCommonProp") {
    LoadPropertyFile(kDataCommonFile, "load data common prop failed:", &map);
  } else if (action == "emptyAppchannelProp") {
    LoadPropertyFile(kEmptyAppChannelFile, "load empty appchannel prop file failed:", &map);
  } else if (action == "switchCarrierChannel") {
    load_carrier_directories(kChannelInfo, kSwitchCarrierChannel, &channelInfo);
  }
  HandOverIfNotEmpty(cb, kApplyOrdinary, map);
}

}  // namespace init
}  // namespace android
