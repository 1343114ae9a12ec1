#include "VemraExtensionProperty/boot/version_text.h"

#include <string>
#include <utility>

namespace android {
namespace init {

bool SplitAtLast(const std::string& text, char separator, std::string* head, std::string* tail) {
  const size_t position = text.rfind(separator);
  if (position == std::string::npos || position == 0) return false;
  // Either output may be the text itself.
  std::string before = text.substr(0, position);
  std::string after = text.substr(position + 1);
  if (head != nullptr) *head = std::move(before);
  if (tail != nullptr) *tail = std::move(after);
  return true;
}

std::string DisplayPartOfVersionName(const std::string& version_name) {
  std::string part = version_name;
  SplitAtLast(version_name, '-', nullptr, &part);
  return part;
}

}  // namespace init
}  // namespace android
