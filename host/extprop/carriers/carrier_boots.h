#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "host/extprop/boot/boot.h"
#include "host/extprop/carriers/carrier_choice.h"
#include "host/extprop/carriers/carrier_keys.h"
#include "host/extprop/explain/compare.h"
#include "host/extprop/vocabulary.h"

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
Result<CarrierBoots> BootByDefault(const BootPlan& plan, const std::vector<CarrierChoice>& base,
                                   const std::set<std::string>& names = {});

// Returns how the boot ended for a property, as by default where its outcome does not tell. Good as
// long as both.
const Ending& EndingOf(const Endings& by_default, const CarrierOutcome& outcome,
                       const std::string& name);

// Boots once more with each element of `choices` in place of what contradicts it in the base,
// `jobs` at once (0: as many as there are cores), and calls `take` for each in their order. A
// terminal shows how many are done and which is next.
void BootEach(const CarrierBoots& boots, const std::vector<std::vector<CarrierChoice>>& choices,
              unsigned jobs,
              const std::function<void(size_t index, const CarrierOutcome& outcome)>& take);

using TakeKey = std::function<void(const Endings& by_default, const CarrierKey& key,
                                   const CarrierOutcome& outcome)>;

// Boots with each listed key of the plan's device in place of what contradicts it in `base`, `jobs`
// at once (0: as many as there are cores), and calls `take` for each in their order; a boot with a
// key that no device can have is one by default. `every_place`: outcomes tell, too, of the
// properties that have their default value from another place. Returns how the boot with `base`
// alone ends. Fails where FindCarrierKeys or BootByDefault does; a boot with a key that fails is an
// outcome.
Result<Endings> BootWithKeys(const BootPlan& plan, const std::vector<CarrierChoice>& base,
                             unsigned jobs, const TakeKey& take, bool every_place = false);

struct CarrierColumn {
  CarrierKey key;
  Endings differences;  // from the default, as in CarrierOutcome
};

// What a device's boot ends with for each carrier key that a device can have.
struct CarrierTable {
  Endings by_default;
  std::vector<CarrierColumn> columns;
};

// Returns what BootWithKeys tells of other values, `every_place` as there: of the properties that
// choose a key too. Fails where that does, and where any boot cannot be made or completed: a table
// with holes would be taken for a whole one.
Result<CarrierTable> FillCarrierTable(const BootPlan& plan, const std::vector<CarrierChoice>& base,
                                      unsigned jobs, bool every_place);

// Returns the names of the properties that differ from the default in any column.
std::set<std::string> VaryingNames(const CarrierTable& table);

}  // namespace extprop
