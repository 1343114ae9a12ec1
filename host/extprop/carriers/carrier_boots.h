#pragma once

#include <functional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"
#include "host/extprop/carriers/carrier_choice.h"
#include "host/extprop/explain/compare.h"

namespace extprop {

constexpr auto FieldsOf(const Ending*) {
  return std::make_tuple(std::pair("value", &Ending::value), std::pair("place", &Ending::place),
                         std::pair("loader", &Ending::loader), std::pair("note", &Ending::note));
}

// A device that is booted many times.
struct CarrierBoots {
  BootPlan plan;       // without any carrier choice
  Endings by_default;  // of its boot with those of `base`
  std::vector<CarrierChoice> base;
  bool fixed_start = false;     // its first steps do the same whatever is chosen
  std::set<std::string> names;  // what is told even where it is as by default
};

// How a boot with choices ends.
struct CarrierOutcome {
  std::string error;  // why it could not be made or completed; empty where it could
  // Of the properties that have another value than by default, without those that were only set to
  // choose the carrier, and of those in `names` that anything sets.
  Endings endings;
  bool fixed_start = false;  // of the default boot: as in CarrierBoots
};

constexpr auto FieldsOf(const CarrierOutcome*) {
  return std::make_tuple(std::pair("error", &CarrierOutcome::error),
                         std::pair("endings", &CarrierOutcome::endings),
                         std::pair("fixed_start", &CarrierOutcome::fixed_start));
}

// Boots the plan with the base choices alone. Fails where the boot cannot be made or completed.
android::base::Result<CarrierBoots> BootByDefault(const BootPlan& plan,
                                                  const std::vector<CarrierChoice>& base,
                                                  const std::set<std::string>& names = {});

// Boots once more with `choices` in place of what contradicts them in the base. What is in `more`
// is told as what is in the names of `boots`.
CarrierOutcome BootWith(const CarrierBoots& boots, const std::vector<CarrierChoice>& choices,
                        const std::set<std::string>& more = {});

// Boots with each element of `choices`, `jobs` at once (0: as many as there are cores), and calls
// `take` for each in their order. `more` is empty or has the further names to tell of each. Fails
// where RunJobs does.
android::base::Result<void> BootEach(
    const CarrierBoots& boots, const std::vector<std::vector<CarrierChoice>>& choices,
    unsigned jobs, const std::function<void(size_t index, CarrierOutcome outcome)>& take,
    const std::vector<std::set<std::string>>& more = {});

}  // namespace extprop
