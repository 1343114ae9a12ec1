#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/carriers/carrier_boots.h"
#include "host/extprop/expect/expectations.h"

namespace extprop {

// What a device does not do as expected.
struct Unmet {
  std::string path;  // of the file that expects it
  unsigned line = 0;
  std::string id;         // "unmet", or "unknown-carrier" of a section that was not booted for it
  std::string name = {};  // of the property; empty for an unknown carrier
  std::string expected = {};               // as in an Expectation
  std::string value = {};                  // what it is instead; empty where it is unset
  std::string place = {};                  // what set or cleared it; empty where nothing did
  std::string note = {};                   // what else is to be known, as of an Ending
  std::vector<std::string> sections = {};  // the titles of those that are concerned
  bool in_all = true;                      // those are all that the line holds for
};

struct ExpectationResult {
  size_t boots = 0;
  size_t expectations = 0;
  std::vector<Unmet> unmet;         // in the order of the files and lines
  std::vector<std::string> errors;  // of boots that could not be made or completed
};

// Boots the plan's device once for each section, `jobs` at once (0: as many as there are cores),
// with those of `base` beside the section's own choices, and tells what is not as expected. Fails
// where no boot could be made.
android::base::Result<ExpectationResult> CheckExpectations(const BootPlan& plan,
                                                           const std::vector<CarrierChoice>& base,
                                                           const Expectations& expectations,
                                                           unsigned jobs);

}  // namespace extprop
