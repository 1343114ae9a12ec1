#include "host/extprop/explain/compare.h"

#include <nlohmann/json.hpp>
#include <set>

#include "host/extprop/explain/history.h"

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Ending, value, place, loader)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Difference, name, a, b)

namespace {

Ending EndingOf(const std::string& name, const BootRecord& record,
                const std::map<std::string, std::vector<Setting>>& histories) {
  Ending ending;
  const auto value = record.properties.find(name);
  if (value != record.properties.end()) ending.value = value->second;
  const auto history = histories.find(name);
  if (history == histories.end()) return ending;
  for (const Setting& setting : history->second) {
    if (!setting.won) continue;
    ending.place = setting.place;
    ending.loader = setting.loader;
  }
  return ending;
}

}  // namespace

std::vector<Difference> Compare(const BootRecord& a, const BootRecord& b) {
  std::set<std::string> names;
  for (const auto& [name, value] : a.properties) names.insert(name);
  for (const auto& [name, value] : b.properties) names.insert(name);
  const auto histories_a = Histories(a), histories_b = Histories(b);
  std::vector<Difference> differences;
  for (const std::string& name : names) {
    Difference found{name, EndingOf(name, a, histories_a), EndingOf(name, b, histories_b)};
    if (found.a.value != found.b.value) differences.push_back(std::move(found));
  }
  return differences;
}

nlohmann::json ToJson(const std::vector<Difference>& differences) {
  return differences;
}

}  // namespace extprop
