#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <android-base/result.h>
#include <nlohmann/json_fwd.hpp>

#include "host/extprop/carriers/carrier_boots.h"
#include "host/extprop/carriers/carrier_keys.h"

namespace extprop {

// One side of a difference between two builds.
struct BuildSide {
  std::string value;             // empty where the property is unset
  std::set<std::string> places;  // where it is from, in any of the boots
};

struct BuildDifference {
  BuildSide a;
  BuildSide b;
};

using BuildDifferences = std::map<std::string, BuildDifference>;  // by property

// Carriers for which the builds differ in the same way.
struct BuildGroup {
  std::vector<CarrierChoice> keys;  // the boot without a choice is one of the empty kind
  BuildDifferences differences;
};

struct BuildComparison {
  BuildDifferences everywhere;     // what differs in the same way in every boot
  std::vector<BuildGroup> groups;  // what differs besides, in the order of their first keys
  size_t keys = 0;                 // how many both builds know
  std::vector<CarrierChoice> only_a, only_b;
  std::vector<std::string> errors;  // of boots that could not be made or completed
};

// Boots both plans by default and with each key that both know, over `base`. `done` is told of each
// boot that is over: how many are, how many there will be at least, and the key.
android::base::Result<BuildComparison> CompareBuilds(
    const BootPlan& a, const BootPlan& b, const std::vector<CarrierChoice>& base, unsigned jobs,
    const std::function<void(size_t done, size_t count, const CarrierChoice& key)>& done);

nlohmann::json ToJson(const BuildComparison& comparison);

}  // namespace extprop
