#pragma once

namespace android {
namespace init {

// What a carrier-keyed directory of a partition applies to; the last component of its path.
constexpr char kSimSwitchCurrentTime[] = "SimSwitchCurrentTime";
constexpr char kSimSwitchFirstTime[] = "SimSwitchFirstTime";
constexpr char kSwitchCarrierChannel[] = "switchCarrierChannel";

}  // namespace init
}  // namespace android
