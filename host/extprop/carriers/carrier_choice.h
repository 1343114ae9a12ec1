#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"

namespace extprop {

// A carrier that a device is set up for, by one of the ways that the library knows:
//
//   first, current  the SIM switch keys, kept in state files
//   channel         the sales channel, kept in the data common file
//   nv              the operator flag in NV storage, of which eight bytes count
//   ssv             the SSV key in the sim action file
//   operator        OPTA-OPTB, two persistent properties
//   vmcarrier       the boot loader's carrier, ro.boot.vmcarrier
struct CarrierChoice {
  std::string kind;
  std::string key;
};

// In the order in which the library's carrier-keyed files use them.
constexpr const char* kCarrierKinds[] = {"first", "current",  "channel",  "nv",
                                         "ssv",   "operator", "vmcarrier"};

// Parses KIND=KEY.
android::base::Result<CarrierChoice> ParseCarrierChoice(const std::string& text);

// Returns whether what a boot with any choices does until its first step that fills no map is what
// `record` tells, that of a boot of `plan`: whether nothing in it depends on what choices change.
bool FirstStepsAreFixed(const BootPlan& plan, const BootRecord& record);

// Returns `choices` and those of `base` that can be in force beside them.
std::vector<CarrierChoice> Override(const std::vector<CarrierChoice>& base,
                                    const std::vector<CarrierChoice>& choices);

// Changes `plan` to a boot of the same device with all of `choices` in force, and whatever of the
// device's own state contradicts them taken away; anything else stays as it is. Call it once, after
// the plan's steps are known. The error says which choices no device has at once.
android::base::Result<void> PutInForce(const std::vector<CarrierChoice>& choices, BootPlan* plan);

}  // namespace extprop
