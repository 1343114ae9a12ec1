#include "host/extprop/boot/property_input.h"

#include <signal.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "host/extprop/boot/library.h"
#include "host/extprop/render/terminal.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::StartsWith;

using Lines = std::vector<std::string>;

bool ReadInput(const std::string& path, std::string* content) {
  if (path != "-") return android::base::ReadFileToString(path, content, true);
  static std::string standard_input;
  static const bool was_read = android::base::ReadFdToString(STDIN_FILENO, &standard_input);
  *content = standard_input;
  return was_read;
}

Result<Lines> ReadLines(const std::string& path) {
  std::string content;
  if (!ReadInput(path, &content)) return ErrnoError() << "cannot read " << path;
  // An editor's byte order mark says nothing of the first entry.
  if (StartsWith(content, "\xef\xbb\xbf[")) content.erase(0, 3);
  Lines lines = android::base::Split(content, "\n");
  // adb shell ends lines with both.
  for (std::string& line : lines) {
    if (EndsWith(line, "\r")) line.pop_back();
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

// Returns the line behind the entry that begins at line `first`, which itself is returned where
// none does. A value may hold lines that end in "]", so what follows the entry's last one tells it.
size_t EndOfEntry(const Lines& lines, size_t first) {
  if (!BeginsEntry(lines[first])) return first;
  for (size_t end = first + 1; end <= lines.size(); ++end) {
    if (!EndsWith(lines[end - 1], "]")) {
      // One that seemed to end in its first line did.
      if (EndsWith(lines[first], "]") && end < lines.size() && BeginsEntry(lines[end])) break;
      continue;
    }
    if (end == lines.size() || IsPassedOver(lines[end]) || BeginsEntry(lines[end]) ||
        StartsWith(lines[end], "------")) {
      return end;
    }
  }
  return EndsWith(lines[first], "]") ? first + 1 : first;  // what follows is at fault
}

// Reads the entry that begins at line `*next` and goes past its last line.
bool TakeEntry(const Lines& lines, size_t* next, Properties* properties) {
  const auto first = lines.begin() + static_cast<ptrdiff_t>(*next);
  const auto end = lines.begin() + static_cast<ptrdiff_t>(EndOfEntry(lines, *next));
  if (first == end) return false;
  const std::string text = android::base::Join(Lines(first, end), '\n');
  const size_t middle = text.find("]: [");
  const size_t value = middle + 4;
  (*properties)[text.substr(1, middle - 1)] = text.substr(value, text.size() - value - 1);
  *next = static_cast<size_t>(end - lines.begin());
  return true;
}

bool IsPrinted(const Lines& lines) {
  const auto first = std::find_if_not(lines.begin(), lines.end(), IsPassedOver);
  return first != lines.end() && StartsWith(*first, "[");
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

// What the parser is to read of a build.prop.
std::string WithoutImports(const std::string& path, Lines lines) {
  for (size_t i = 0; i < lines.size(); ++i) {
    const std::string text = android::base::Trim(lines[i]);
    const bool import = StartsWith(text, "import ");
    if (!import && (IsPassedOver(text) || text.find('=') != std::string::npos)) continue;
    fprintf(stderr, "extprop: warning: %s:%zu: %s: %s\n", path.c_str(), i + 1,
            import ? "not followed" : "no property", Visible(text).c_str());
    if (import) lines[i].clear();
  }
  return android::base::Join(lines, '\n');
}

// While it lives, no signal ends the process that it can hold up.
class SignalsHeldUp {
 public:
  SignalsHeldUp() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before_);
  }
  ~SignalsHeldUp() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeldUp(const SignalsHeldUp&) = delete;
  SignalsHeldUp& operator=(const SignalsHeldUp&) = delete;

 private:
  sigset_t before_;
};

Result<void> ParseBuildProp(const std::string& path, const Lines& lines, const Library& library,
                            Properties* properties) {
  const auto load = library.load_properties_from_file_without_se;
  if (load == nullptr) return Error() << path << ": this library does not show its parser";
  const SignalsHeldUp until_removed;
  // The parser follows no link, so that a descriptor's name under /proc does not do.
  TemporaryFile file;
  if (file.fd < 0 || !android::base::WriteStringToFd(WithoutImports(path, lines), file.fd)) {
    return ErrnoError() << path << ": cannot write a temporary file";
  }
  // A boot sets its own logger.
  android::base::SetLogger([](auto...) {});
  Properties read;
  load(file.path, nullptr, &read);
  if (read.empty() && !std::all_of(lines.begin(), lines.end(), IsPassedOver)) {
    return Error() << path << ": no property is in it";
  }
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

Result<void> ReadProperties(const std::string& path, const std::string& library,
                            Properties* properties) {
  Result<Library> loaded = LoadLibrary(library);
  if (!loaded.ok()) return loaded.error();
  Result<Lines> lines = ReadLines(path);
  if (!lines.ok()) return lines.error();
  if (IsPrinted(*lines)) return ParsePrinted(path, *lines, properties);
  return ParseBuildProp(path, *lines, *loaded, properties);
}

Result<void> ReadPrinted(const std::string& path, Properties* properties) {
  Result<Lines> lines = ReadLines(path);
  if (!lines.ok()) return lines.error();
  return ParsePrinted(path, *lines, properties);
}

Result<void> ReadPhone(const std::string& path, Properties* properties) {
  Result<Lines> lines = ReadLines(path);
  if (!lines.ok()) return lines.error();
  if (IsPrinted(*lines)) return ParsePrinted(path, *lines, properties);
  Properties longest;
  for (size_t next = 0; next < lines->size(); ++next) {
    Properties run;
    while (next < lines->size() && TakeEntry(*lines, &next, &run)) continue;
    if (run.size() > longest.size()) longest = std::move(run);
  }
  if (longest.empty()) return Error() << path << ": nothing in it is what getprop prints";
  for (auto& [name, value] : longest) (*properties)[name] = std::move(value);
  return {};
}

std::string StoredText(const BootRecord& record) {
  Properties kept = record.properties;
  for (const auto& [name, value] : record.initial) kept.try_emplace(name, "");
  for (const HandOver* hand_over : Only<HandOver>(record)) {
    for (const Entry& entry : hand_over->entries) {
      if (entry.value.empty() && entry.refused.empty()) kept.try_emplace(entry.name, "");
    }
  }
  std::string text;
  for (const auto& [name, value] : kept) {
    if (!StartsWith(name, kStoredPrefix)) continue;
    text.append("[").append(name).append("]: [").append(value).append("]\n");
  }
  return text;
}

}  // namespace extprop
