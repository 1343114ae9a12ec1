#include "utils/property_file_parser.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/chrono_utils.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "utils/expand_props.h"
#include "utils/file_io.h"

namespace android {
namespace init {

using android::base::Error;
using android::base::Result;
using android::base::StartsWith;

namespace {

// The size of the device's value buffer, terminator included. <sys/system_properties.h> has it too,
// but the limit belongs to the rule, not to a buffer of ours.
constexpr size_t kValueLimit = 92;

constexpr std::string_view kImportPrefix = "import ";
constexpr char kReadAlready[] = "import refused, the file is being read already: ";

bool IsSpace(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

std::string_view TrimLeft(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  return text;
}

std::string_view TrimRight(std::string_view text) {
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

bool MatchesFilter(std::string_view name, std::string_view filter) {
  if (filter.back() != '*') return name == filter;
  filter.remove_suffix(1);
  return name.substr(0, filter.size()) == filter;
}

// Later values win, so that a later line, import or file overrides an earlier one.
void Merge(std::string_view name, std::string_view value, PropertyMap* properties) {
  auto [entry, inserted] = properties->try_emplace(std::string(name), value);
  if (inserted || entry->second == value) return;
  // "'ro.'" is fixed text: the message is the same for every name.
  LOG(WARNING) << "Overriding previous 'ro.' property '" << name << "':'" << entry->second
               << "' with new value '" << value << "'";
  entry->second.assign(value.data(), value.size());
}

// Not the paths but the files are compared, as partitions are reachable under several paths.
struct FileBeingRead {
  std::string path;
  dev_t dev = 0;
  ino_t ino = 0;  // 0, which no file has, where the system did not tell.
};

// One outermost call: the files it is inside of, and what bounds it.
class PropertyFileLoad {
 public:
  explicit PropertyFileLoad(PropertyMap* properties) : properties_(properties) {}

  bool Load(const std::string& filename, std::string_view filter);

 private:
  void ParseContent(std::string_view content, std::string_view filter);
  void ParseLine(std::string_view line, std::string_view filter);
  void Import(std::string_view argument);
  bool RefuseUnseen(const std::string& path);
  void Refuse(const std::string& path, const char* reason);
  template <typename Same>
  bool IsBeingRead(Same same) const;

  PropertyMap* const properties_;
  std::vector<FileBeingRead> being_read_;  // The outermost file first.
  size_t files_entered_ = 0;
  std::set<std::string> refused_;
};

bool PropertyFileLoad::Load(const std::string& filename, std::string_view filter) {
  android::base::Timer timer;
  FileBeingRead file = {filename};
  bool refused = false;
  Result<std::string> content = ReadFileIf(filename, [&](const struct stat& st) {
    file.dev = st.st_dev;
    file.ino = st.st_ino;
    refused = IsBeingRead([&](const auto& other) {
      return other.ino != 0 && other.dev == file.dev && other.ino == file.ino;
    });
    return !refused;
  });
  if (refused) {
    Refuse(filename, kReadAlready);
    return true;
  }
  ++files_entered_;
  if (!content.ok()) {
    LOG(WARNING) << "Couldn't load property file '" << filename << "': " << content.error();
    return false;
  }
  being_read_.push_back(std::move(file));
  ParseContent(*content, filter);
  being_read_.pop_back();
  LOG(VERBOSE) << "(Loading properties from " << filename << " took " << timer << ".)";
  return true;
}

void PropertyFileLoad::ParseContent(std::string_view content, std::string_view filter) {
  // A NUL byte ends the text of its line. Hardly any file holds one, so it is looked for only once.
  const bool has_nul = content.find('\0') != std::string_view::npos;
  while (!content.empty()) {
    const size_t line_feed = content.find('\n');
    std::string_view line = content.substr(0, line_feed);
    content.remove_prefix(line_feed == std::string_view::npos ? content.size() : line_feed + 1);
    if (has_nul) line = line.substr(0, line.find('\0'));
    ParseLine(line, filter);
  }
}

void PropertyFileLoad::ParseLine(std::string_view line, std::string_view filter) {
  line = TrimLeft(line);
  if (line.empty() || line.front() == '#') return;
  line = TrimRight(line);

  if (filter.empty() && line.substr(0, kImportPrefix.size()) == kImportPrefix) {
    Import(line.substr(kImportPrefix.size()));
    return;
  }

  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) return;
  const std::string_view name = TrimRight(line.substr(0, equals));
  if (!filter.empty() && !MatchesFilter(name, filter)) return;
  Merge(name, TrimLeft(line.substr(equals + 1)), properties_);
}

void PropertyFileLoad::Import(std::string_view argument) {
  argument = TrimLeft(argument);
  const size_t space = argument.find(' ');
  const std::string_view filter =
      space == std::string_view::npos ? std::string_view() : TrimLeft(argument.substr(space + 1));

  Result<std::string> path = ExpandProps(std::string(argument.substr(0, space)));
  if (!path.ok()) {
    LOG(ERROR) << "Could not expand filename ': " << path.error();
    return;
  }
  const bool exhausted = files_entered_ >= kMaxFilesPerLoad;
  if (exhausted && refused_.count(*path) != 0) return;
  if (access(path->c_str(), F_OK) != 0 || RefuseUnseen(*path)) return;
  if (!Load(*path, filter)) LOG(ERROR) << "expand filename load failed : " << *path;
}

// Refuses what can be told without opening the file.
bool PropertyFileLoad::RefuseUnseen(const std::string& path) {
  if (IsBeingRead([&](const auto& file) { return file.path == path; })) {
    Refuse(path, kReadAlready);
  } else if (being_read_.size() >= kMaxImportDepth) {
    Refuse(path, "import refused, nested too deep: ");
  } else if (files_entered_ >= kMaxFilesPerLoad) {
    Refuse(path, "import refused, too many files: ");
  } else {
    return false;
  }
  return true;
}

void PropertyFileLoad::Refuse(const std::string& path, const char* reason) {
  if (refused_.insert(path).second) LOG(ERROR) << reason << path;
}

template <typename Same>
bool PropertyFileLoad::IsBeingRead(Same same) const {
  return std::any_of(being_read_.begin(), being_read_.end(), same);
}

bool IsLegalNameByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
         c == '-' || c == ':' || c == '@' || c == '_';
}

}  // namespace

bool load_properties_from_file_without_se(const char* filename, const char* filter,
                                          PropertyMap* properties) {
  return PropertyFileLoad(properties).Load(filename, filter == nullptr ? "" : filter);
}

bool IsLegalPropertyName(const std::string& name) {
  if (name.empty() || name.front() == '.' || name.back() == '.') return false;
  if (name.find("..") != std::string::npos) return false;
  for (char c : name) {
    if (!IsLegalNameByte(c)) return false;
  }
  return true;
}

Result<void> IsLegalPropertyValue(const std::string& name, const std::string& value) {
  if (value.size() >= kValueLimit && !StartsWith(name, "ro.")) {
    return Error() << "Property value too long";
  }
  if (mbstowcs(nullptr, value.c_str(), 0) == static_cast<size_t>(-1)) {
    return Error() << "Value is not a UTF8 encoded string";
  }
  return {};
}

}  // namespace init
}  // namespace android
