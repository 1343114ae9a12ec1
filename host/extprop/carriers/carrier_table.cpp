#include "host/extprop/carriers/carrier_table.h"

namespace extprop {

using android::base::Error;
using android::base::Result;

Result<Endings> BootWithKeys(const BootPlan& plan, const std::vector<CarrierChoice>& base,
                             unsigned jobs, const TakeKey& take) {
  Result<std::vector<CarrierKey>> keys = FindCarrierKeys(plan);
  if (!keys.ok()) return keys.error();
  Result<CarrierBoots> boots = BootByDefault(plan, base);
  if (!boots.ok()) return boots.error();
  std::vector<std::vector<CarrierChoice>> choices;
  for (const CarrierKey& key : *keys) {
    if (key.listed && key.never.empty()) choices.push_back({key.Choice()});
  }
  auto next = keys->begin();
  const auto take_impossible = [&] {
    for (; next != keys->end() && !(next->listed && next->never.empty()); ++next) {
      if (next->listed) take(boots->by_default, *next, {});
    }
  };
  BootEach(*boots, choices, jobs, [&](size_t, const CarrierOutcome& outcome) {
    take_impossible();
    take(boots->by_default, *next++, outcome);
  });
  take_impossible();
  return std::move(boots->by_default);
}

Result<CarrierTable> FillCarrierTable(const BootPlan& plan, const std::vector<CarrierChoice>& base,
                                      unsigned jobs) {
  CarrierTable table;
  std::string error;
  const auto add = [&](const Endings&, const CarrierKey& key, const CarrierOutcome& outcome) {
    if (!key.never.empty()) return;
    if (error.empty() && !outcome.error.empty()) error = key.Choice().Text() + ": " + outcome.error;
    table.columns.push_back({key, outcome.endings});
  };
  Result<Endings> by_default = BootWithKeys(plan, base, jobs, add);
  if (!by_default.ok()) return by_default.error();
  if (!error.empty()) return Error() << error;
  table.by_default = std::move(*by_default);
  return table;
}

std::set<std::string> VaryingNames(const CarrierTable& table) {
  std::set<std::string> names;
  for (const CarrierColumn& column : table.columns) {
    for (const auto& [name, ending] : column.differences) names.insert(name);
  }
  return names;
}

}  // namespace extprop
