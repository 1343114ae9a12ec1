#include "host/extprop/boot/property_input.h"

#include <unistd.h>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "host/extprop/boot/library_functions.h"

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::StartsWith;

using Lines = std::vector<std::string>;

Result<std::string> ReadInput(const std::string& path) {
  static std::optional<std::string> standard_input;
  std::string content;
  if (path == "-") {
    if (!standard_input && android::base::ReadFdToString(STDIN_FILENO, &content)) {
      standard_input = std::move(content);
    }
    if (standard_input) return *standard_input;
  } else if (android::base::ReadFileToString(path, &content, true)) {
    return content;
  }
  return ErrnoError() << "cannot read " << path;
}

Lines LinesOf(const std::string& content) {
  Lines lines = android::base::Split(content, "\n");
  // adb shell ends lines with both.
  for (std::string& line : lines) {
    if (android::base::EndsWith(line, "\r")) line.pop_back();
  }
  return lines;
}

bool IsPassedOver(const std::string& line) {
  const std::string text = android::base::Trim(line);
  return text.empty() || text[0] == '#';
}

bool BeginsEntry(const std::string& line) {
  return StartsWith(line, "[") && line.find("]: [") != std::string::npos;
}

// Whether an entry cannot go on behind line `at`, as it may where a value holds a line that ends in
// "]".
bool MustEnd(const Lines& lines, size_t at) {
  if (!android::base::EndsWith(lines[at], "]")) return false;
  const size_t next = at + 1;
  return next == lines.size() || IsPassedOver(lines[next]) || BeginsEntry(lines[next]) ||
         StartsWith(lines[next], "------");
}

// Reads the entry that begins at line `*next` and goes past its last line.
bool TakeEntry(const Lines& lines, size_t* next, Properties* properties) {
  const size_t first = *next;
  if (!BeginsEntry(lines[first])) return false;
  size_t last = first;
  while (last < lines.size() && !MustEnd(lines, last)) ++last;
  if (last == lines.size()) last = first;  // what follows is at fault
  if (!android::base::EndsWith(lines[last], "]")) return false;
  const std::string text =
      android::base::Join(Lines(lines.begin() + static_cast<ptrdiff_t>(first),
                                lines.begin() + static_cast<ptrdiff_t>(last) + 1),
                          '\n');
  const size_t middle = text.find("]: [");
  const size_t value = middle + 4;
  (*properties)[text.substr(1, middle - 1)] = text.substr(value, text.size() - value - 1);
  *next = last + 1;
  return true;
}

bool IsPrinted(const Lines& lines) {
  for (const std::string& line : lines) {
    if (!IsPassedOver(line)) return StartsWith(line, "[");
  }
  return false;
}

Result<void> ParsePrinted(const std::string& path, const Lines& lines, Properties* properties) {
  for (size_t next = 0; next < lines.size();) {
    if (IsPassedOver(lines[next])) {
      ++next;
    } else if (!TakeEntry(lines, &next, properties)) {
      return Error() << path << ":" << next + 1 << ": not [NAME]: [VALUE]";
    }
  }
  return {};
}

void Warn(const std::string& path, size_t line, const std::string& text) {
  fprintf(stderr, "extprop: warning: %s:%zu: %s\n", path.c_str(), line, text.c_str());
}

// What the parser is to read of a build.prop.
std::string WithoutImports(const std::string& path, Lines lines) {
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string text = android::base::Trim(lines[i]);
    if (StartsWith(text, "import ")) {
      Warn(path, i + 1, "not followed: " + text);
      lines[i].clear();
    } else if (!IsPassedOver(text) && text.find('=') == std::string::npos) {
      Warn(path, i + 1, "no property: " + text);
    }
  }
  return android::base::Join(lines, '\n');
}

Result<void> ParseBuildProp(const std::string& path, const Lines& lines, Factory library,
                            Properties* properties) {
  const auto load = FindLibraryFunctions(library).load_properties_from_file_without_se;
  if (load == nullptr) return Error() << path << ": this library does not show its parser";
  // The parser follows no link, so that a descriptor's name under /proc does not do.
  TemporaryFile file;
  if (file.fd < 0 || !android::base::WriteStringToFd(WithoutImports(path, lines), file.fd)) {
    return ErrnoError() << path << ": cannot write a temporary file";
  }
  // A boot sets its own logger.
  android::base::SetLogger([](auto...) {});
  Properties read;
  load(file.path, nullptr, &read);
  if (read.empty() && !std::all_of(lines.begin(), lines.end(), IsPassedOver))
    return Error() << path << ": no property is in it";
  for (auto& [name, value] : read) (*properties)[name] = std::move(value);
  return {};
}

}  // namespace

Result<void> ParseAssignment(const std::string& text, Properties* properties) {
  const size_t equals = text.find('=');
  const std::string name = android::base::Trim(text.substr(0, equals));
  if (equals == std::string::npos || name.empty()) return Error() << "not NAME=VALUE";
  (*properties)[name] = android::base::Trim(text.substr(equals + 1));
  return {};
}

Result<void> ReadProperties(const std::string& path, Factory library, Properties* properties) {
  Result<std::string> content = ReadInput(path);
  if (!content.ok()) return content.error();
  const Lines lines = LinesOf(*content);
  if (IsPrinted(lines)) return ParsePrinted(path, lines, properties);
  return ParseBuildProp(path, lines, library, properties);
}

Result<void> ReadPrinted(const std::string& path, Properties* properties) {
  Result<std::string> content = ReadInput(path);
  if (!content.ok()) return content.error();
  return ParsePrinted(path, LinesOf(*content), properties);
}

Result<void> ReadPhone(const std::string& path, Properties* properties) {
  Result<std::string> content = ReadInput(path);
  if (!content.ok()) return content.error();
  const Lines lines = LinesOf(*content);
  if (IsPrinted(lines)) return ParsePrinted(path, lines, properties);
  Properties longest;
  for (size_t next = 0; next < lines.size(); ++next) {
    Properties run;
    while (next < lines.size() && TakeEntry(lines, &next, &run)) continue;
    if (run.size() > longest.size()) longest = std::move(run);
  }
  if (longest.empty()) return Error() << path << ": nothing in it is what getprop prints";
  for (auto& [name, value] : longest) (*properties)[name] = std::move(value);
  return {};
}

std::string StoredText(const BootRecord& record) {
  Properties kept = record.properties;
  for (const auto& [name, value] : record.initial) kept.try_emplace(name, "");
  std::string text;
  for (const auto& [name, value] : kept) {
    if (!StartsWith(name, kStoredPrefix)) continue;
    text.append("[").append(name).append("]: [").append(value).append("]\n");
  }
  return text;
}

}  // namespace extprop
