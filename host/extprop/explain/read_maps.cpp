#include "host/extprop/explain/read_maps.h"

#include <android-base/strings.h>

#include "host/extprop/explain/computed_value.h"

namespace extprop {

namespace {

using android::base::StartsWith;

// Whether a hand-over of the map may lack the name.
bool MayBeLeftOut(const ReadMap& map, int mode, std::string_view name) {
  if (map.content == FileContent::kInfo) return !IsForwarded(std::string(name));
  return name == kCarriedOverName || (mode == 1 && StartsWith(name, "ro."));
}

bool IsHandedOver(const ReadMap& map, const HandOver& hand_over) {
  bool any = false;
  for (const auto& [name, held] : map.names) {
    if (held.line == nullptr) continue;
    const Entry* entry = FindEntry(hand_over, name);
    const bool there = entry != nullptr && entry->value == held.line->value;
    if (!there && !MayBeLeftOut(map, hand_over.mode, name)) return false;
    any = any || there;
  }
  return any;
}

// Where the files of one directory set a name differently, the directory's order decides.
void MarkDirectoryOrder(PendingLine* last, std::vector<PendingLine>* lines) {
  std::map<size_t, Setting*> of_files;  // what each sets at last
  for (PendingLine& line : *lines) {
    const bool there = !line.filtered && line.directory == last->directory;
    if (there) of_files[line.outermost] = &line.setting;
  }
  std::vector<std::string> places;
  bool differ = false;
  for (const auto& [file, setting] : of_files) {
    if (!Has(places, setting->place)) places.push_back(setting->place);
    differ = differ || setting->value != last->setting.value;
  }
  if (!differ) return;
  last->setting.directory_order = places;
  for (const auto& [file, setting] : of_files) {
    if (setting != &last->setting) setting->why = DependsOnOrder(last->setting);
  }
}

void AddLines(int mode, HeldName* held, History* history) {
  PendingLine* last = nullptr;
  for (PendingLine& line : held->pending) {
    if (line.filtered) continue;
    line.setting.mode = mode;
    if (last != nullptr) last->setting.why = LostTo(last->setting, line.setting);
    last = &line;
  }
  const bool in_directory = last != nullptr && !last->directory.empty();
  if (in_directory && mode != kNotHandedOver) MarkDirectoryOrder(last, &held->pending);
  for (PendingLine& line : held->pending) {
    if (&line == last) held->index = history->size();
    history->push_back(std::move(line.setting));
  }
  held->pending.clear();
}

}  // namespace

// Of several the latest, as a loader hands over what it read last before what it read first. Where
// the host gave a map to fill, it is the only one.
ReadMap* FindHandedOver(const HandOver& hand_over, ReadMaps* maps) {
  for (auto map = maps->rbegin(); map != maps->rend(); ++map) {
    if (!map->second.pending) continue;
    const bool filled = hand_over.mode == kFilledMap;
    if (filled || IsHandedOver(map->second, hand_over)) return &map->second;
  }
  return nullptr;
}

void AddPending(const HandOver* hand_over, ReadMap* map, HistoryMap* histories) {
  for (auto& [name, held] : map->names) {
    if (held.pending.empty()) continue;
    const bool carried = hand_over != nullptr && FindEntry(*hand_over, name) != nullptr;
    if (map->content == FileContent::kInfo && !carried) continue;
    const int mode = carried ? hand_over->mode : kNotHandedOver;
    AddLines(mode, &held, &(*histories)[std::string(name)]);
  }
  map->pending = false;
}

}  // namespace extprop
