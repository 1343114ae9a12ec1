#include "host/extprop/explain/setting.h"

#include <android-base/strings.h>

#include <nlohmann/json.hpp>

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Origin, name, value, place, carrier, inputs, directory_order)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Setting, name, place, file, line, step, loader, mode, value, won,
                                   why, refused, carrier, directory_order, inputs)

nlohmann::json ToJson(const Setting& setting) {
  return setting;
}

nlohmann::json ToJson(const History& history) {
  return history;
}

void SetPlace(const std::string& file, unsigned line, Setting* setting) {
  setting->file = file;
  setting->line = line;
  setting->place = file + ":" + std::to_string(line);
}

Origin OriginOf(const Setting& setting) {
  Origin origin = {setting.name, setting.value, setting.place, setting.carrier, setting.inputs, {}};
  origin.directory_order = setting.directory_order;
  return origin;
}

Origin CurrentOrigin(const HistoryMap& histories, const std::string& name) {
  const auto history = histories.find(name);
  const Setting* winner = history == histories.end() ? nullptr : Winner(history->second);
  Origin unset;
  unset.name = name;
  return winner == nullptr ? unset : OriginOf(*winner);
}

std::string DependsOnOrder(const Setting& setting) {
  return setting.directory_order.empty() ? ""
                                         : "depends on the directory's order: " +
                                               android::base::Join(setting.directory_order, ", ");
}

const Setting* Winner(const History& history) {
  for (const Setting& setting : history) {
    if (setting.won && !setting.value.empty()) return &setting;
  }
  return nullptr;
}

}  // namespace extprop
