#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/check/check.h"

namespace extprop {

// Which findings count.
struct FindingSelection {
  std::vector<std::string> ignore;  // ids
  std::vector<std::string> only;    // ids; all where empty
  std::string baseline;             // a file that has the JSON of an earlier check; empty for none
};

// Takes those out of `*findings` that do not count and returns how many they were. A finding that
// the baseline has too, by path on the device, id and message, does not count; where one has more
// of them, as many as it has more do. The error says what is wrong with the baseline.
android::base::Result<std::size_t> Select(const FindingSelection& selection,
                                          std::vector<Finding>* findings);

}  // namespace extprop
