#include "host/extprop/explain/setting.h"

#include <android-base/strings.h>

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Origin, name, value, place, carrier, inputs, directory_order)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Setting, name, value, place, carrier, inputs, directory_order,
                                   file, line, step, loader, mode, won, why, refused)

json ToJson(const Setting& setting) {
  return setting;
}

json ToJson(const History& history) {
  return history;
}

void SetPlace(const std::string& file, unsigned line, Setting* setting) {
  setting->file = file;
  setting->line = line;
  setting->place = file + ":" + std::to_string(line);
}

void Decide(const Entry& entry, size_t index, History* history) {
  Setting& setting = (*history)[index];
  setting.refused = entry.refused;
  setting.why = entry.refused.empty() ? "" : "refused: " + entry.refused;
  if (!entry.refused.empty() || setting.won) return;
  for (Setting& other : *history) {
    if (other.won) other.why = LostTo(other, setting);
    other.won = false;
  }
  setting.won = true;
}

std::string LostTo(const Setting& loser, const Setting& winner) {
  std::string how = "overridden by ";
  if (winner.value == loser.value) how = "set again, to the same, by ";
  if (winner.value.empty()) how = "cleared by ";
  return how + winner.place +
         (winner.loader == loser.loader || winner.loader.empty() ? "" : " (" + winner.loader + ")");
}

const Setting* Winner(const History& history) {
  for (const Setting& setting : history) {
    if (setting.won && !setting.value.empty()) return &setting;
  }
  return nullptr;
}

std::string DependsOnOrder(const Origin& origin) {
  const std::vector<std::string>& places = origin.directory_order;
  return places.empty() ? ""
                        : "depends on the directory's order: " + android::base::Join(places, ", ");
}

}  // namespace extprop
