#pragma once

#include <string>
#include <vector>

#include "host/extprop/boot/boot_record.h"

namespace extprop {

// What the library computes by itself and hands over.
struct ComputedValue {
  std::string rule;  // its name; empty where none is known
  // The properties that it computes from; "A|B" is the first of them that is set.
  std::vector<std::string> inputs;
};

// Tells by the hand-over what made `entry`, which no file's line did.
ComputedValue FindComputedValue(const HandOver& hand_over, const Entry& entry);

// Returns whether any value is computed from a property of that name.
bool IsInput(const std::string& name);

// The identity of a COTA image, which is carried over to that of the carrier's.
constexpr const char* kCarriedOverName = "ro.vemra.image.my_bigball.version_name";

}  // namespace extprop
