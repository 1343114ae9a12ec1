#include "host/extprop/explain/compare.h"

#include "host/extprop/explain/history.h"

namespace extprop {

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

Endings EndingsOf(const BootRecord& record, const std::set<std::string>* names) {
  const auto is_wanted = [&](const std::string& name) {
    return names == nullptr || names->count(name) != 0;
  };
  Endings endings;
  if (names != nullptr) {
    for (const std::string& name : *names) endings[name];
  }
  for (const auto& [name, history] : Histories(record, is_wanted)) {
    if (is_wanted(name)) endings[name] = EndingOf(history);
  }
  for (const auto& [name, value] : record.properties) {
    if (is_wanted(name)) endings[name].value = value;
  }
  return endings;
}

std::vector<Difference> Compare(const Endings& a, const Endings& b) {
  std::map<std::string, Difference> both;
  for (const auto& [name, ending] : a) both[name].a = ending;
  for (const auto& [name, ending] : b) both[name].b = ending;
  std::vector<Difference> differences;
  for (auto& [name, found] : both) {
    found.name = name;
    if (found.a.value != found.b.value) differences.push_back(std::move(found));
  }
  return differences;
}

}  // namespace extprop
