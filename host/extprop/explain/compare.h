#pragma once

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "host/extprop/boot/boot_record.h"

namespace extprop {

// What a boot ends with for one property, and what decided it.
struct Ending {
  std::string value;   // empty where the property is unset
  std::string place;   // as in Setting; empty where nothing sets the property
  std::string loader;  // empty where none is concerned
};

struct Difference {
  std::string name;
  Ending a;
  Ending b;
};

// Returns the properties that the boots leave with other values, by name. The places are known for
// records of plans that ask for attribution.
std::vector<Difference> Compare(const BootRecord& a, const BootRecord& b);

nlohmann::json ToJson(const std::vector<Difference>& differences);

}  // namespace extprop
