#include "host/extprop/explain/compare.h"

#include <nlohmann/json.hpp>
#include <set>

#include "host/extprop/explain/history.h"

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Ending, value, place, loader, note)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Difference, name, a, b)

namespace {

Ending EndingOf(const History& history) {
  Ending ending;
  for (const Setting& setting : history) {
    if (setting.won) {
      ending.place = setting.place;
      ending.loader = setting.loader;
    }
    std::string note;
    if (!setting.refused.empty())
      note = "init refuses [" + setting.value + "] from " + setting.place + ": " + setting.refused;
    if (setting.won && !setting.directory_order.empty()) note = DependsOnOrder(setting);
    if (!note.empty()) ending.note += (ending.note.empty() ? "" : "; ") + note;
  }
  return ending;
}

}  // namespace

Endings EndingsOf(const BootRecord& record) {
  Endings endings;
  for (const auto& [name, history] : Histories(record)) endings[name] = EndingOf(history);
  for (const auto& [name, value] : record.properties) endings[name].value = value;
  return endings;
}

Endings EndingsOf(const BootRecord& record, const std::set<std::string>& names) {
  const auto histories =
      Histories(record, [&](const std::string& name) { return names.count(name) != 0; });
  Endings endings;
  for (const std::string& name : names) {
    Ending& ending = endings[name];
    const auto history = histories.find(name);
    if (history != histories.end()) ending = EndingOf(history->second);
    const auto value = record.properties.find(name);
    if (value != record.properties.end()) ending.value = value->second;
  }
  return endings;
}

std::vector<Difference> Compare(const Endings& a, const Endings& b) {
  std::set<std::string> names;
  for (const auto& [name, ending] : a) names.insert(name);
  for (const auto& [name, ending] : b) names.insert(name);
  std::vector<Difference> differences;
  for (const std::string& name : names) {
    const auto in_a = a.find(name), in_b = b.find(name);
    Difference found{name, in_a == a.end() ? Ending() : in_a->second,
                     in_b == b.end() ? Ending() : in_b->second};
    if (found.a.value != found.b.value) differences.push_back(std::move(found));
  }
  return differences;
}

std::vector<Difference> Compare(const BootRecord& a, const BootRecord& b) {
  return Compare(EndingsOf(a), EndingsOf(b));
}

nlohmann::json ToJson(const std::vector<Difference>& differences) {
  return differences;
}

}  // namespace extprop
