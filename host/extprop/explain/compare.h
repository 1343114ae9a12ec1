#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// What a boot ends with for one property, and what decided it.
struct Ending {
  std::string value;   // empty where the property is unset
  std::string place;   // as in Setting; empty where nothing sets the property
  std::string loader;  // empty where none is concerned
  std::string note;    // what else is to be known: a value that init refused, or the directory
                       // whose own order decides; empty where nothing is
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Ending, value, place, loader, note)

using Endings = std::map<std::string, Ending>;  // by name

// Returns what the boot ends with for every property that it leaves set or that anything sets. The
// places are known for records of plans that ask for lines. Where `names` is not null, it is for
// those properties, which takes less time; those that nothing sets are empty.
Endings EndingsOf(const BootRecord& record, const std::set<std::string>* names = nullptr);

struct Difference {
  std::string name;
  Ending a;
  Ending b;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Difference, name, a, b)

// Returns the properties that have other values in the one than in the other, by name.
std::vector<Difference> Compare(const Endings& a, const Endings& b);

}  // namespace extprop
