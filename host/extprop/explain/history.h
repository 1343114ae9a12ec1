#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// The modes of a setting that no hand-over carried; the others are those of HandOver.
constexpr int kSetDirectly = -3;    // set before the boot, or by the library itself
constexpr int kNotHandedOver = -4;  // a line that went no further, or was not read

// A value and where it is from: of a property, or of a carrier key.
struct Origin {
  std::string name;   // of the property, or such as "nv key"
  std::string value;  // empty where it clears the property
  // "/odm/build.prop:12", or "rule: " and the rule's name. Never a file that the boot itself wrote,
  // but what it was written from.
  std::string place;
  // The carrier key that it applies by and where that is from, as in "for nv key A -> b
  // (FILE:LINE), from FILE"; empty where it needs none.
  std::string carrier;
  std::vector<Origin> inputs;  // what the library computed the value from
  // The files that set the name differently in the one directory that the value is from; which of
  // them decides is the directory's own order. Empty where that does not matter.
  std::vector<std::string> directory_order;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Origin, name, value, place, carrier, inputs, directory_order)

// One place that sets a property, and what became of it.
struct Setting : Origin {
  std::string file;  // of the place, on the device as it was before any mount; empty for a rule
  unsigned line = 0;
  size_t step = 0;     // index into the record's steps
  std::string loader;  // such as "persist", "simswitch=simSwitchFirst", "post boot_mount"; empty
                       // for what was set before the boot
  int mode = kNotHandedOver;
  bool won = false;     // this one decides what the boot ends with
  std::string why;      // why it lost; empty where it won
  std::string refused;  // why init does not set it; empty where it does
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Setting, name, value, place, carrier, inputs, directory_order,
                                   file, line, step, loader, mode, won, why, refused)

// The settings of one property, in the order in which they took effect.
using History = std::vector<Setting>;

using HistoryMap = std::map<std::string, History>;  // by name

// Makes FILE:LINE the setting's place.
void SetPlace(const std::string& file, unsigned line, Setting* setting);

// Makes the setting at `index` the one that won, unless init refuses the entry that carried it.
void Decide(const Entry& entry, size_t index, History* history);

// Returns why a setting lost to another.
std::string LostTo(const Setting& loser, const Setting& winner);

// Returns the setting that won, null if none did or it cleared the property.
const Setting* Winner(const History& history);

// Returns "depends on the directory's order: PLACE, PLACE" where that is so, else nothing.
std::string DependsOnOrder(const Origin& origin);

using IsWanted = std::function<bool(const std::string& name)>;

// Returns the settings of every property that anything sets, in the order in which they took
// effect; at most one of a property won. The record must come from a plan that asks for lines:
// others know no lines, only rules. Where only the names are needed that `wanted` is true for, it
// takes a fraction of the time; others may be there too.
HistoryMap Histories(const BootRecord& record, const IsWanted& wanted = nullptr);

}  // namespace extprop
