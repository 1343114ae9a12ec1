#include "VemraExtensionProperty/carrier_directory.h"

#include <string>

namespace android {
namespace init {

const char kSimSwitchCurrentTime[] = "SimSwitchCurrentTime";
const char kSimSwitchFirstTime[] = "SimSwitchFirstTime";
const char kSwitchCarrierChannel[] = "switchCarrierChannel";

std::string CarrierDirectory(const std::string& root, const std::string& key, const char* kind) {
  return root + "/properties/" + key + "/" + kind;
}

}  // namespace init
}  // namespace android
