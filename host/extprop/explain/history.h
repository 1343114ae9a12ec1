#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "host/extprop/boot/boot_record.h"

namespace extprop {

// The modes of a setting that no hand-over carried.
constexpr int kNotHandedOver = -2;  // a line that was read and went no further
constexpr int kSetDirectly = -3;    // set before the boot, or by the library itself

// One place that sets a property, and what became of it.
struct Setting {
  std::string name;
  // Where the value comes from: "/odm/build.prop:12", a path alone where the value is a file's
  // whole content, or "rule: " and the rule's name.
  std::string place;
  std::string file;  // of the place, on the device as it was before any mount; empty for a rule
  unsigned line = 0;
  size_t step = 0;     // index into the record's steps
  std::string loader;  // such as "persist", "simswitch=simSwitchFirst", "post boot_mount"; empty
                       // for what was set before the boot
  int mode = kNotHandedOver;
  std::string value;  // empty where it clears the property
  bool won = false;   // this one decides what the boot ends with
  std::string why;    // why it lost; empty where it won
};

// Returns the settings of every property that anything sets, in the order in which they took
// effect; at most one of a property won. The record must come from a plan that asks for
// attribution: others know no lines, only rules.
std::map<std::string, std::vector<Setting>> Histories(const BootRecord& record);

// Returns the setting that won, null if none did or it cleared the property.
const Setting* Winner(const std::vector<Setting>& history);

nlohmann::json ToJson(const Setting& setting);
nlohmann::json ToJson(const std::vector<Setting>& history);

}  // namespace extprop
