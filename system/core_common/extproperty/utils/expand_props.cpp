#include "utils/expand_props.h"

#include <string>

#include <android-base/properties.h>

namespace android {
namespace init {

using android::base::Error;
using android::base::GetProperty;
using android::base::Result;

Result<std::string> ExpandProps(const std::string& src) {
  std::string expanded;
  size_t cursor = 0;
  while (cursor < src.size()) {
    const size_t dollar = src.find('$', cursor);
    if (dollar == std::string::npos) {
      expanded.append(src, cursor, std::string::npos);
      break;
    }
    expanded.append(src, cursor, dollar - cursor);

    const size_t after = dollar + 1;
    if (after == src.size()) break;
    if (src[after] == '$') {
      expanded.push_back('$');
      cursor = after + 1;
      continue;
    }
    if (src[after] != '{') {
      return Error() << "using deprecated syntax for specifying property '" << src.substr(after)
                     << "', use ${name} instead";
    }

    const size_t name_start = after + 1;
    const size_t brace = src.find('}', name_start);
    if (brace == std::string::npos) {
      return Error() << "unexpected end of string in '" << src << "', looking for }";
    }
    std::string name = src.substr(name_start, brace - name_start);
    cursor = brace + 1;

    std::string default_value;
    const size_t separator = name.find(":-");
    if (separator != std::string::npos) {
      default_value = name.substr(separator + 2);
      name.resize(separator);
    }
    if (name.empty()) return Error() << "invalid zero-length property name in '" << src << "'";

    std::string value = GetProperty(name, "");
    if (value.empty()) {
      if (default_value.empty()) {
        return Error() << "property '" << name << "' doesn't exist while expanding '" << src << "'";
      }
      value = default_value;
    }
    expanded.append(value);
  }
  return expanded;
}

}  // namespace init
}  // namespace android
