#include "host/extprop/carriers/carrier_table.h"

namespace extprop {

using android::base::Error;
using android::base::Result;

Result<CarrierTable> FillCarrierTable(
    const BootPlan& plan, const std::vector<CarrierChoice>& base, unsigned jobs,
    const std::function<void(size_t done, size_t count, const CarrierChoice& key)>& show) {
  Result<std::vector<CarrierKey>> keys = FindCarrierKeys(plan);
  if (!keys.ok()) return keys.error();
  Result<CarrierBoots> boots = BootByDefault(plan, base);
  if (!boots.ok()) return boots.error();
  CarrierTable table = {boots->by_default, {}};
  std::vector<std::vector<CarrierChoice>> choices;
  for (const CarrierKey& key : *keys) {
    if (!key.listed || !key.never.empty()) continue;
    table.columns.push_back({key, {}});
    choices.push_back({{key.kind, key.name}});
  }
  std::string error;
  Result<void> run = BootEach(*boots, choices, jobs, [&](size_t index, CarrierOutcome outcome) {
    if (error.empty() && !outcome.error.empty()) {
      error = choices[index][0].kind + "=" + choices[index][0].key + ": " + outcome.error;
    }
    table.columns[index].differences = std::move(outcome.endings);
    const size_t done = index + 1;
    if (show && done < choices.size()) show(done, choices.size(), choices[done][0]);
  });
  if (!run.ok()) return run.error();
  if (!error.empty()) return Error() << error;
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
