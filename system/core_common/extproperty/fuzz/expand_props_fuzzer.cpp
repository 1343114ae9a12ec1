#include "utils/expand_props.h"

#include "fuzz/fuzz_support.h"

// Input: the values of the properties "a" and "ro.b", and the text to expand.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> pieces = fuzz::Cut(data, size, 3);
  device::ApplyProperty("a", pieces[0]);
  device::ApplyProperty("ro.b", pieces[1]);
  const auto expected = fuzz::ModelExpand(pieces[2]);
  const auto expanded = android::init::ExpandProps(pieces[2]);
  fuzz::Expect(expanded.ok() == expected.has_value(), "what fails is what the model refuses");
  fuzz::Expect(!expanded.ok() || *expanded == *expected, "the text is the model's");
  return 0;
}
