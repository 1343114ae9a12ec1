#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>
#include <nlohmann/json_fwd.hpp>

#include "host/extprop/boot/boot.h"

namespace extprop {

// A way to put one carrier on the device. Keys that come to the same are one.
struct CarrierKey {
  // What names it: "first", "current" and "channel" have directories, "operator" and "ssv" files of
  // the name; "nv" and "vmcarrier" are translated by the mapping files.
  std::string kind;
  std::vector<std::string> names;
  std::string target;                // what the directories and files are named by
  std::vector<std::string> sources;  // the directories, files and mapping files that know it
};

nlohmann::json ToJson(const CarrierKey& key);

// Finds all carrier keys that the tree of `plan` knows, by kind.
android::base::Result<std::vector<CarrierKey>> FindCarrierKeys(const BootPlan& plan);

// Changes `plan` to a boot of the same device in which `key` is in force.
void PutInForce(const CarrierKey& key, BootPlan* plan);

}  // namespace extprop
