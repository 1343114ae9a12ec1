#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/carriers/carrier_boots.h"
#include "host/extprop/carriers/carrier_keys.h"

namespace extprop {

using TakeKey = std::function<void(const Endings& by_default, const CarrierKey& key,
                                   const CarrierOutcome& outcome)>;

// Boots with each listed key of the plan's device in place of what contradicts it in `base`, `jobs`
// at once (0: as many as there are cores), and calls `take` for each in their order; the outcome of
// a key that no device can have is empty. Returns how the boot with `base` alone ends. Fails where
// FindCarrierKeys or BootByDefault does; a boot with a key that fails is an outcome.
android::base::Result<Endings> BootWithKeys(const BootPlan& plan,
                                            const std::vector<CarrierChoice>& base, unsigned jobs,
                                            const TakeKey& take);

struct CarrierColumn {
  CarrierKey key;
  Endings differences;  // from the default, as in CarrierOutcome
};

// What a device's boot ends with for each carrier key that a device can have.
struct CarrierTable {
  Endings by_default;
  std::vector<CarrierColumn> columns;
};

// Returns what BootWithKeys tells. Fails where that does, and where any boot cannot be made or
// completed: a table with holes would be taken for a whole one.
android::base::Result<CarrierTable> FillCarrierTable(const BootPlan& plan,
                                                     const std::vector<CarrierChoice>& base,
                                                     unsigned jobs);

// Returns the names of the properties that differ from the default in any column.
std::set<std::string> VaryingNames(const CarrierTable& table);

}  // namespace extprop
