#pragma once

#include <string>
#include <vector>

#include "host/extprop/boot/boot.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// A carrier that a device is set up for, by one of the ways that the library knows:
//
//   first, current  the SIM switch keys, kept in state files
//   channel         the sales channel, kept in the data common file
//   nv              the operator flag in NV storage, of which eight bytes count
//   ssv             the SSV key in the sim action file
//   operator        OPTA-OPTB, two persistent properties
//   vmcarrier       the boot loader's carrier, ro.boot.vmcarrier
//
// A kind with a dot in it is the name of a property that the device boots with, and the key its
// value; an empty kind stands for the device as it is.
struct CarrierChoice {
  std::string kind;
  std::string key;

  bool IsProperty() const { return kind.find('.') != std::string::npos; }
  std::string Text() const { return kind + "=" + key; }  // as it is parsed
  std::string Title() const { return kind.empty() ? "default" : kind + " " + key; }
  bool operator<(const CarrierChoice& than) const {
    return kind != than.kind ? kind < than.kind : key < than.key;
  }
};

// Returns the titles with `separator` between them.
std::string Titles(const std::vector<CarrierChoice>& choices, const char* separator);

// The kinds of carriers, as listed above.
const std::vector<std::string>& CarrierKinds();

// Parses KIND=KEY with the kind of a carrier.
Result<CarrierChoice> ParseCarrierChoice(const std::string& text);

// Returns `choices` and those of `base` that can be in force beside them.
std::vector<CarrierChoice> Override(const std::vector<CarrierChoice>& base,
                                    const std::vector<CarrierChoice>& choices);

// Changes `plan` to a boot of the same device with all of `choices` in force, and whatever of the
// device's own state, or of an earlier call's, contradicts them taken away; anything else stays as
// it is. Call it when the plan's steps are known. `by` is what the user knows them by. The error
// says which choices no device has at once.
Result<void> PutInForce(const std::vector<CarrierChoice>& choices, BootPlan* plan,
                        const std::string& by = "--carrier");

// Returns the properties that the choice by itself gives other values to boot with than those of
// `plan`.
Properties SetBy(const CarrierChoice& choice, const BootPlan& plan);

}  // namespace extprop
