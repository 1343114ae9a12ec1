#include "host/extprop/explain/read_maps.h"

#include <algorithm>
#include <string>

#include "host/extprop/explain/computed_value.h"

namespace extprop {

namespace {

bool HasPrefix(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

bool HasSuffix(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

// Whether a hand-over of the map may lack the name.
bool MayBeLeftOut(const ReadMap& map, int mode, std::string_view name) {
  if (map.kind == ReadMap::Kind::kInfoFile)
    return !HasPrefix(name, "sys.") && !HasPrefix(name, "ro.");
  return name == kCarriedOverName || (mode == 1 && HasPrefix(name, "ro."));
}

bool IsHandedOver(const ReadMap& map, const HandOver& hand_over) {
  bool any = false;
  for (const auto& [name, line] : map.held) {
    const Entry* entry = FindEntry(hand_over, name);
    const bool there = entry != nullptr && entry->value == line->value;
    if (!there && !MayBeLeftOut(map, hand_over.mode, name)) return false;
    any = any || there;
  }
  return any;
}

}  // namespace

ReadMap::Kind KindOfMap(std::string_view path) {
  if (path == "/data/cota/cota_mount_info.prop" || path == "/data/cota/cota_module_info.prop")
    return ReadMap::Kind::kInfoFile;
  if (HasSuffix(path, "/etc/flags.prop") || HasSuffix(path, "/etc/nvmap.prop"))
    return ReadMap::Kind::kMapping;
  return ReadMap::Kind::kProperties;
}

size_t OutermostIndex(const BootRecord& record, size_t file) {
  return static_cast<size_t>(&OutermostFile(record, file) - record.property_files.data());
}

const Entry* FindEntry(const HandOver& hand_over, std::string_view name) {
  const auto& entries = hand_over.entries;  // in the order of a map
  const auto entry = std::lower_bound(
      entries.begin(), entries.end(), name,
      [](const Entry& each, std::string_view wanted) { return each.name < wanted; });
  return entry == entries.end() || entry->name != name ? nullptr : &*entry;
}

// Of several the latest, as a loader hands over what it read last before what it read first.
ReadMap* FindHandedOver(const HandOver& hand_over, ReadMaps* maps) {
  for (auto map = maps->rbegin(); map != maps->rend(); ++map) {
    if (map->second.pending && IsHandedOver(map->second, hand_over)) return &map->second;
  }
  return nullptr;
}

}  // namespace extprop
