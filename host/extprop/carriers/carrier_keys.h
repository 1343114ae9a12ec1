#pragma once

#include <set>
#include <string>
#include <vector>

#include "host/extprop/boot/boot.h"
#include "host/extprop/carriers/carrier_choice.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// A carrier key that a device's files know.
struct CarrierKey {
  std::string kind;  // as of a CarrierChoice
  std::string name;
  std::string target;  // what names the files it leads to: of nv by flags.prop; else the key itself
  std::string first;   // the first key that nvmap.prop derives from it; empty where none
  std::vector<std::string> sources;  // the directories, files and mapping files that know it
  std::string never = {};            // why no device can have it; empty where one can
  bool listed = true;                // false where the key is rather one of another kind

  CarrierChoice Choice() const { return {kind, name}; }
};

json ToJson(const CarrierKey& key);

// Finds all carrier keys that the tree of `plan` knows. Those that are listed come in the order in
// which the library's carrier-keyed files use their kinds, and by name. Warns on the standard error
// stream of what could not be looked into. Fails as StartSurvey does.
Result<std::vector<CarrierKey>> FindCarrierKeys(const BootPlan& plan);

// Returns the names of the properties that are set in any file which not every boot reads, such as
// those of carriers and what imports name. Fails as StartSurvey does.
Result<std::set<std::string>> FindSurveyedNames(const BootPlan& plan);

// Says of each choice that has no effect on the device why, and which keys it may have been meant
// to be; one sentence each.
std::vector<std::string> Doubts(const std::vector<CarrierChoice>& choices,
                                const std::vector<CarrierKey>& keys);

}  // namespace extprop
