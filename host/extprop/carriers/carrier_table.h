#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/carriers/carrier_boots.h"
#include "host/extprop/carriers/carrier_keys.h"

namespace extprop {

struct CarrierColumn {
  CarrierKey key;
  Endings differences;  // from the default, as in CarrierOutcome
};

// What a device's boot ends with for each carrier key that a device can have.
struct CarrierTable {
  Endings by_default;
  std::vector<CarrierColumn> columns;
};

// Boots with each, `jobs` at once (0: as many as there are cores). `show`, where given, is told how
// many boots of how many are done and which key is next. Fails where any boot cannot be made or
// completed: a table with holes would be taken for a whole one.
android::base::Result<CarrierTable> FillCarrierTable(
    const BootPlan& plan, const std::vector<CarrierChoice>& base, unsigned jobs,
    const std::function<void(size_t done, size_t count, const CarrierChoice& key)>& show = {});

// Returns the names of the properties that differ from the default in any column.
std::set<std::string> VaryingNames(const CarrierTable& table);

}  // namespace extprop
