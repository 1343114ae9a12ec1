#include "fuzz/fuzz_support.h"

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "host/sandbox/private_root.h"

namespace fuzz {

std::vector<std::string> Cut(const uint8_t* data, size_t size, size_t count) {
  auto pieces = android::base::Split(std::string(data, data + size), "|");
  pieces.resize(count);
  return pieces;
}

void Expect(bool holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "does not hold: %s\n", what);
  abort();
}

std::optional<std::string> ModelExpand(const std::string& src) {
  std::string out;
  for (size_t i = 0; i < src.size(); ++i) {
    if (src[i] != '$') {
      out += src[i];
    } else if (src[++i] == '$') {
      out += '$';
    } else if (i < src.size()) {
      const size_t end = src.find('}', i);
      if (src[i] != '{' || end == std::string::npos) return std::nullopt;
      const std::string inside = src.substr(i + 1, end - i - 1);
      const size_t cut = std::min(inside.find(":-"), inside.size());
      std::string value = device::PropertyValue(inside.substr(0, cut));
      if (value.empty() && cut < inside.size()) value = inside.substr(cut + 2);
      if (cut == 0 || value.empty()) return std::nullopt;
      out += value;
      i = end;
    }
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
