#include "utils/expand_props.h"

#include "fuzz/fuzz_support.h"

// Input: the values of the properties "a" and "ro.b", and the text to expand.
void fuzz::Test(const std::vector<std::string>& pieces) {
  device::ApplyProperty("a", pieces[0]);
  device::ApplyProperty("ro.b", pieces[1]);
  const auto expected = ModelExpand(pieces[2]);
  const auto expanded = android::init::ExpandProps(pieces[2]);
  Expect(expanded.ok() ? expected == *expanded : !expected, "the text or failure is the model's");
}
