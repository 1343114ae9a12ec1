#include "host/extprop/boot/property_input.h"

#include <android-base/file.h>
#include <android-base/strings.h>

#include <vector>

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

// Reads the entry that begins at line `*next` and goes past its last line.
bool ParsePrinted(const std::vector<std::string>& lines, size_t* next, Properties* properties) {
  std::string text = lines[(*next)++];
  const size_t middle = text.find("]: [");
  if (middle == std::string::npos) return false;
  while (!android::base::EndsWith(text, "]")) {
    if (*next == lines.size()) return false;
    text += "\n" + lines[(*next)++];
  }
  const size_t value = middle + 4;
  (*properties)[text.substr(1, middle - 1)] = text.substr(value, text.size() - value - 1);
  return true;
}

}  // namespace

Result<void> ParseAssignment(const std::string& text, Properties* properties) {
  const size_t equals = text.find('=');
  const std::string name = android::base::Trim(text.substr(0, equals));
  if (equals == std::string::npos || name.empty()) return Error() << "not NAME=VALUE";
  (*properties)[name] = android::base::Trim(text.substr(equals + 1));
  return {};
}

Result<void> ReadProperties(const std::string& path, Properties* properties) {
  std::string content;
  if (!android::base::ReadFileToString(path, &content, true)) {
    return ErrnoError() << "cannot read " << path;
  }
  std::vector<std::string> lines = android::base::Split(content, "\n");
  // adb shell ends lines with both.
  for (std::string& line : lines) {
    if (android::base::EndsWith(line, "\r")) line.pop_back();
  }
  for (size_t next = 0; next < lines.size();) {
    const size_t at = next;
    const std::string line = android::base::Trim(lines[at]);
    if (line.empty() || line[0] == '#') {
      ++next;
    } else if (line[0] == '[') {
      if (!ParsePrinted(lines, &next, properties)) {
        return Error() << path << ":" << at + 1 << ": not [NAME]: [VALUE]";
      }
    } else {
      Result<void> parsed = ParseAssignment(lines[next++], properties);
      if (!parsed.ok()) return Error() << path << ":" << at + 1 << ": " << parsed.error();
    }
  }
  return {};
}

Result<int> WritePersistent(const BootRecord& record, const std::string& path) {
  Properties kept = record.properties;
  for (const auto& [name, value] : record.initial) kept.try_emplace(name, "");
  std::string text;
  int skipped = 0;
  for (const auto& [name, value] : kept) {
    if (!android::base::StartsWith(name, "persist.")) continue;
    const bool one_line = value.find('\n') == std::string::npos;
    if (one_line) text.append(name).append("=").append(value).append("\n");
    if (!one_line) ++skipped;
  }
  if (!android::base::WriteStringToFile(text, path)) return ErrnoError() << "cannot write " << path;
  return skipped;
}

}  // namespace extprop
