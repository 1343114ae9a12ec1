#pragma once

#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <android-base/result.h>
#include <nlohmann/json_fwd.hpp>

#include "host/extprop/boot/boot.h"
#include "host/extprop/carriers/carrier_choice.h"

namespace extprop {

// A carrier key that a device's files know.
struct CarrierKey {
  std::string kind;  // as of a CarrierChoice
  std::string name;
  std::string target;  // what names the files it leads to: of nv by flags.prop; else the key itself
  std::string first;   // the first key that nvmap.prop derives from it; empty where none
  std::vector<std::string> sources;  // the directories, files and mapping files that know it
  std::string never;                 // why no device can have it; empty where one can
  bool listed = true;                // false where the key is rather one of another kind
};

constexpr auto FieldsOf(const CarrierKey*) {
  return std::make_tuple(
      std::pair("kind", &CarrierKey::kind), std::pair("name", &CarrierKey::name),
      std::pair("target", &CarrierKey::target), std::pair("first", &CarrierKey::first),
      std::pair("sources", &CarrierKey::sources), std::pair("never", &CarrierKey::never),
      std::pair("listed", &CarrierKey::listed));
}

nlohmann::json ToJson(const CarrierKey& key);

// Finds all carrier keys that the tree of `plan` knows, in the order of kCarrierKinds and by name.
android::base::Result<std::vector<CarrierKey>> FindCarrierKeys(const BootPlan& plan);

// Returns the choices of those that are listed and that a device can have.
std::vector<CarrierChoice> ChoicesOf(const std::vector<CarrierKey>& keys);

// Says of each choice that has no effect on the device why, and which keys it may have been meant
// to be; one sentence each.
std::vector<std::string> Doubts(const std::vector<CarrierChoice>& choices,
                                const std::vector<CarrierKey>& keys);

}  // namespace extprop
