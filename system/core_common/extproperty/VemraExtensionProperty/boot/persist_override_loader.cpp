#include <string>

#include "VemraExtensionProperty/boot/channel_info_restore.h"
#include "VemraExtensionProperty/boot/forced_internet_connection.h"
#include "VemraExtensionProperty/boot/special_properties.h"
#include "VemraExtensionProperty/carrier/operator_carrier_key.h"
#include "VemraExtensionProperty/carrier/sim_switch_state_file.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/system_property.h"

namespace android {
namespace init {

int InitExtensionPropertyImpl::loadPersistOverrideProperties(PropertyApplyCallback cb) {
  const bool no_key_known = oldNvKey.empty() && simSwitchFirstKey.empty() &&
                            simSwitchCurrentKey.empty() && nvTargetKey.empty();
  if (no_key_known) runSimSwitchKeyPass(cb);

  const std::string operator_key = OperatorCarrierKey();
  const bool takes_operator_key = ssvKey.empty() && !operator_key.empty();
  if (takes_operator_key) {
    ssvKey = operator_key;
    if (simSwitchFirstKey.empty()) runSimSwitchKeyPass(cb);
  }

  if (no_key_known || takes_operator_key) {
    PropertyMap props;
    loadAllPartitionsSimswitchProperties(&props);
    HandOverIfNotEmpty(cb, kApplyOrdinary, props);
  }

  applyCompanyUpdate(cb);

  loadSpecialProperties(cb);
  checkAndRestoreChannelInfo(cb);
  forceInternetConnection(cb);
  return 0;
}

void InitExtensionPropertyImpl::runSimSwitchKeyPass(PropertyApplyCallback cb) {
  PropertyMap props;
  for (const char* name : {kNoneClearSwitchFirst, kSimSwitchFirst, kSimSwitchConvert}) {
    const std::string value = ReadSystemProperty(name);
    if (!value.empty()) props.emplace(name, value);
  }
  loadExtensionSimswitchKeyInfo(&props);
  HandOverIfNotEmpty(cb, kApplyOrdinary, props);
}

}  // namespace init
}  // namespace android
