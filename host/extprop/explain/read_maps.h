#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/boot/device_layout.h"
#include "host/extprop/explain/history.h"

namespace extprop {

// A line that is not in the history yet: what becomes of its map is not known.
struct PendingLine {
  Setting setting;
  bool filtered = false;  // the filter of an import kept it out
  size_t outermost = 0;   // the outermost file, an index into the record's
  std::string directory;  // that it lies in, of a carrier key; else empty
};

constexpr size_t kNotInHistory = ~size_t{0};

// What a map has of one name.
struct HeldName {
  const PropertyLine* line = nullptr;  // the last that set it; null where all are filtered
  size_t index = kNotInHistory;        // where in the history that line's setting is
  bool handed_over = false;            // that line was
  std::vector<PendingLine> pending;
};

// A map of the library that lines went into.
struct ReadMap {
  FileContent content = FileContent::kProperties;
  bool pending = false;  // lines went in since it was handed over
  std::unordered_map<std::string_view, HeldName> names;
};

// The maps of one step by their numbers.
using ReadMaps = std::map<size_t, ReadMap>;

// Returns the map that `hand_over` is a copy of or a selection from, null where the library
// computed all of it.
ReadMap* FindHandedOver(const HandOver& hand_over, ReadMaps* maps);

// Adds the map's pending lines to the histories, as `hand_over` carries them; null: it was not
// handed over.
void AddPending(const HandOver* hand_over, ReadMap* map, HistoryMap* histories);

}  // namespace extprop
