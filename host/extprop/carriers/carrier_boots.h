#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"
#include "host/extprop/carriers/carrier_choice.h"
#include "host/extprop/explain/compare.h"

namespace extprop {

// A device that is booted many times.
struct CarrierBoots {
  BootPlan plan;       // without any carrier choice
  Endings by_default;  // of its boot with those of `base`
  Properties values;   // the values of these
  std::vector<CarrierChoice> base;
  std::set<std::string> names;  // told where only their places are not as by default, too
};

// How a boot with choices ends.
struct CarrierOutcome {
  std::string error;  // why it could not be made or completed; empty where it could
  // Of the properties that have another value than by default, without those that were only set to
  // choose the carrier, and of those in `names` that end in any way other than by default.
  Endings endings;
};

// Boots the plan with the base choices alone. Fails where the boot cannot be made or completed.
android::base::Result<CarrierBoots> BootByDefault(const BootPlan& plan,
                                                  const std::vector<CarrierChoice>& base,
                                                  const std::set<std::string>& names = {});

// Returns how the boot ended for a property, as by default where its outcome does not tell. Good as
// long as both.
const Ending& EndingOf(const CarrierBoots& boots, const CarrierOutcome& outcome,
                       const std::string& name);

// Boots once more with each element of `choices` in place of what contradicts it in the base,
// `jobs` at once (0: as many as there are cores), and calls `take` for each in their order. A
// terminal shows how many are done and which is next.
void BootEach(const CarrierBoots& boots, const std::vector<std::vector<CarrierChoice>>& choices,
              unsigned jobs,
              const std::function<void(size_t index, const CarrierOutcome& outcome)>& take);

}  // namespace extprop
