#include "fuzz/fuzz_support.h"

#include <clocale>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <regex>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "host/sandbox/private_root.h"

namespace fuzz {

void Expect(bool holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "does not hold: %s\n", what);
  abort();
}

std::optional<std::string> ModelExpand(std::string src) {
  // Plain text, "$$" or a "$" at the end, and "${name:-default}".
  static const std::regex item(R"(([^$]+)|\$(\$|$)|\$\{(?!:-)([^}]+?)(:-([^}]*))?\})");
  std::string out;
  for (std::smatch match; !src.empty(); src = match.suffix().str()) {
    if (!std::regex_search(src, match, item, std::regex_constants::match_continuous)) return {};
    const bool refers = match[3].matched;
    std::string text = refers ? device::PropertyValue(match[3]) : match.str(1) + match.str(2);
    if (text.empty()) text = match[5];
    if (refers && text.empty()) return {};
    out += text;
  }
  return out;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::Expect(setlocale(LC_CTYPE, "C.UTF-8") != nullptr, "there is the device's locale");
  fuzz::Expect(sandbox::EnterPrivateRoot({}).ok(), "the kernel allows a private root");
  android::base::SetMinimumLogSeverity(android::base::VERBOSE);
  android::base::SetLogger([](auto...) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string input(data, data + size);
  // The machine's files are no files of the device.
  if (input.find("proc") != std::string::npos) return -1;
  std::vector<std::string> pieces = android::base::Split(input, "|");
  pieces.resize(6);
  device::ClearProperties();
  fuzz::Test(pieces);
  return 0;
}
