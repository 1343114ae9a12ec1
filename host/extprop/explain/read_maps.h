#pragma once

#include <map>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/setting.h"

namespace extprop {

// A line that was read, and what stands for it where the boot itself wrote the file.
struct ReadLine {
  const PropertyLine* line = nullptr;
  const Setting* written = nullptr;  // null where the device has the file
};

// A map of the library that lines went into.
struct ReadMap {
  enum class Kind { kProperties, kInfoFile, kMapping };
  Kind kind = Kind::kProperties;
  bool pending = false;         // lines went in since it was handed over
  std::vector<ReadLine> lines;  // those
  std::unordered_map<std::string_view, const PropertyLine*> held;
};

// Returns what kind of map the outermost file `path` is read into.
ReadMap::Kind KindOfMap(std::string_view path);

// Returns the index of the file at the head of the imports that led to `file`.
size_t OutermostIndex(const BootRecord& record, size_t file);

// Returns the entry of that name, or null.
const Entry* FindEntry(const HandOver& hand_over, std::string_view name);

// The maps of one step by their numbers.
using ReadMaps = std::map<size_t, ReadMap>;

// Returns the map that `hand_over` is a copy of or a selection from, null where the library
// computed all of it.
ReadMap* FindHandedOver(const HandOver& hand_over, ReadMaps* maps);

}  // namespace extprop
