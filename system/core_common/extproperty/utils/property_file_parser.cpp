#include "utils/property_file_parser.h"

#include <errno.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/chrono_utils.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include "extproperty/property_file_observer.h"
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

std::atomic<PropertyFileObserver*> current_observer{nullptr};

bool IsSpace(char c) {
  // Most bytes are decided by the first comparison.
  return c <= ' ' && (c == ' ' || (c >= '\t' && c <= '\r'));
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

// One outermost call: the files it is inside of, and what bounds it.
class PropertyFileLoad {
 public:
  explicit PropertyFileLoad(PropertyMap* properties) : properties_(properties) {}

  bool Load(const std::string& filename, std::string_view filter);

 private:
  using Outcome = PropertyLineOutcome;

  void ParseContent(std::string_view content, std::string_view filter);
  void ParseLine(std::string_view line, std::string_view filter);
  void Merge(std::string_view name, std::string_view value);
  void Import(std::string_view argument);
  const char* ReasonToRefuse(const std::string& path, std::string_view filter) const;
  void Tell(Outcome outcome, std::string_view name = {}, std::string_view value = {},
            std::string_view replaced = {});

  PropertyMap* const properties_;
  PropertyFileObserver* const observer_ = current_observer.load(std::memory_order_acquire);
  PropertyLine line_;  // The observer's view of the line at hand.
  // The files that are being read, the outermost first. One that is read with a filter follows no
  // import, so it can only be the last.
  std::vector<std::string> chain_;
  size_t files_entered_ = 0;
  size_t bytes_read_ = 0;
  std::set<std::string> refused_;
};

bool PropertyFileLoad::Load(const std::string& filename, std::string_view filter) {
  android::base::Timer timer;
  ++files_entered_;
  if (observer_ != nullptr) observer_->EnterFile(filename, filter, properties_);
  const Result<std::string> content = ReadFile(filename);
  bytes_read_ += content.ok()                      ? content->size()
                 : content.error().code() == EFBIG ? kMaxFileSize
                                                   : 0;
  if (!content.ok()) {
    if (observer_ != nullptr) observer_->LeaveFile(content.error().message());
    LOG(WARNING) << "Couldn't load property file '" << filename << "': " << content.error();
    return false;
  }
  chain_.push_back(filename);
  ParseContent(*content, filter);
  chain_.pop_back();
  if (observer_ != nullptr) observer_->LeaveFile({});
  LOG(VERBOSE) << "(Loading properties from " << filename << " took " << timer << ".)";
  return true;
}

void PropertyFileLoad::ParseContent(std::string_view content, std::string_view filter) {
  // A NUL byte ends the text of its line. Hardly any file holds one, so it is looked for only once.
  const bool has_nul = content.find('\0') != std::string_view::npos;
  for (size_t number = 1; !content.empty(); ++number) {
    const size_t line_feed = content.find('\n');
    std::string_view line = content.substr(0, line_feed);
    content.remove_prefix(line_feed == std::string_view::npos ? content.size() : line_feed + 1);
    if (observer_ != nullptr) {
      line_.number = number;
      line_.text = line;
    }
    if (has_nul) line = line.substr(0, line.find('\0'));
    ParseLine(line, filter);
  }
}

void PropertyFileLoad::ParseLine(std::string_view line, std::string_view filter) {
  line = TrimLeft(line);
  if (line.empty() || line.front() == '#') return Tell(Outcome::kBlank);
  line = TrimRight(line);

  if (filter.empty() && line.substr(0, kImportPrefix.size()) == kImportPrefix) {
    return Import(line.substr(kImportPrefix.size()));
  }

  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) return Tell(Outcome::kNoProperty);
  const std::string_view name = TrimRight(line.substr(0, equals));
  const std::string_view value = TrimLeft(line.substr(equals + 1));
  if (!filter.empty() && !MatchesFilter(name, filter)) {
    return Tell(Outcome::kFiltered, name, value);
  }
  Merge(name, value);
}

// Later values win, so that a later line, import or file overrides an earlier one.
void PropertyFileLoad::Merge(std::string_view name, std::string_view value) {
  // The one copy of the name is made where it stays, in the map's node.
  auto [entry, inserted] = properties_->emplace(name, value);
  if (inserted) return Tell(Outcome::kSet, name, value);
  if (entry->second == value) return Tell(Outcome::kSameAgain, name, value);
  Tell(Outcome::kReplaced, name, value, entry->second);
  // "'ro.'" is fixed text: the message is the same for every name.
  LOG(WARNING) << "Overriding previous 'ro.' property '" << name << "':'" << entry->second
               << "' with new value '" << value << "'";
  entry->second.assign(value.data(), value.size());
}

void PropertyFileLoad::Import(std::string_view argument) {
  argument = TrimLeft(argument);
  const size_t space = argument.find(' ');
  const std::string_view name = argument.substr(0, space);
  const std::string_view filter =
      space == std::string_view::npos ? std::string_view() : TrimLeft(argument.substr(space + 1));

  const Result<std::string> path = ExpandProps(std::string(name));
  if (!path.ok()) {
    Tell(Outcome::kImportNotExpandable, name, filter);
    LOG(ERROR) << "Could not expand filename ': " << path.error();
    return;
  }
  if (access(path->c_str(), F_OK) != 0) return Tell(Outcome::kImportMissing, *path, filter);
  if (const char* reason = ReasonToRefuse(*path, filter)) {
    Tell(Outcome::kImportRefused, *path, filter);
    if (refused_.insert(*path).second) LOG(ERROR) << reason << *path;
    return;
  }
  Tell(Outcome::kImportFollowed, *path, filter);
  if (!Load(*path, filter)) LOG(ERROR) << "expand filename load failed : " << *path;
}

// Returns the beginning of the message, null where the import is to be followed.
const char* PropertyFileLoad::ReasonToRefuse(const std::string& path,
                                             std::string_view filter) const {
  if (files_entered_ >= kMaxFilesPerLoad) return "import refused, too many files: ";
  if (bytes_read_ >= kMaxBytesPerLoad) return "import refused, too much read: ";
  if (chain_.size() >= kMaxImportDepth) return "import refused, nested too deep: ";
  // With a filter the file is read but its imports are not followed: it closes no circle.
  const bool circle =
      filter.empty() && std::find(chain_.begin(), chain_.end(), path) != chain_.end();
  return circle ? "import refused, the file is being read already: " : nullptr;
}

void PropertyFileLoad::Tell(Outcome outcome, std::string_view name, std::string_view value,
                            std::string_view replaced) {
  if (observer_ == nullptr) return;
  line_.outcome = outcome;
  line_.name = name;
  line_.value = value;
  line_.replaced = replaced;
  observer_->ReadLine(line_);
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

void KSSI_OBSERVE_PropertyFiles(android::init::PropertyFileObserver* observer) {
  android::init::current_observer.store(observer, std::memory_order_release);
}
