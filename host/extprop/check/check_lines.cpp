#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include <android-base/strings.h>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/check/checks.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::StartsWith;

constexpr const char* kByteOrderMark = "\xef\xbb\xbf";

class ReadingCheck {
 public:
  ReadingCheck(const Reading& reading, Imports imports, const Library& library, Findings* findings)
      : reading_(reading), imports_(imports), library_(library), findings_(*findings) {}

  void Run() {
    if (!reading_.file->error.empty()) return ReportUnread();
    for (const PropertyLine* line : reading_.lines) CheckLine(*line);
  }

 private:
  void ReportUnread();
  void CheckLine(const PropertyLine& line);
  void CheckProperty(const PropertyLine& line);
  void CheckNoProperty(const PropertyLine& line);
  void CheckImport(const PropertyLine& line);
  void Report(const char* id, const PropertyLine& line, const std::string& message,
              const Place& other = {}) {
    findings_.Add(id, {reading_.Path(), line.line}, message, other);
  }

  const Reading& reading_;
  const Imports imports_;
  const Library& library_;
  Findings& findings_;
};

void ReadingCheck::ReportUnread() {
  struct stat status;
  const bool found = lstat(reading_.Path().c_str(), &status) == 0;
  if (!found && errno == ENOENT && EndsWith(reading_.Path(), "/build.prop")) {
    return findings_.Add("missing-partition", {reading_.Path()},
                         "there is no such file, so no build properties are here");
  }
  std::string why = "it cannot be read: " + reading_.file->error;
  if (found && S_ISFIFO(status.st_mode)) why = WhyUnread(ENXIO);
  // The boot may have taken the link away.
  if (EndsWith(why, strerror(ELOOP))) why = WhyUnread(ELOOP);
  findings_.Add("unreadable-file", {reading_.Path()}, why, reading_.import);
}

void ReadingCheck::CheckLine(const PropertyLine& line) {
  if (line.line == 1 && StartsWith(line.text.empty() ? line.name : line.text, kByteOrderMark)) {
    return Report("byte-order-mark", line,
                  "the byte order mark \\xef\\xbb\\xbf is read as the beginning of the line");
  }
  if (line.text.find('\0') != std::string::npos) {
    Report("nul-byte", line, "nothing from the NUL byte to the end of the line is read");
  }
  switch (line.outcome) {
    case LineOutcome::kBlank:
    case LineOutcome::kFiltered:
    case LineOutcome::kImportFollowed:
      return;
    case LineOutcome::kNoProperty:
      return CheckNoProperty(line);
    case LineOutcome::kSet:
    case LineOutcome::kReplaced:
    case LineOutcome::kSameAgain:
      return CheckProperty(line);
    case LineOutcome::kImportMissing:
    case LineOutcome::kImportRefused:
    case LineOutcome::kImportNotExpandable:
      return CheckImport(line);
  }
}

void ReadingCheck::CheckNoProperty(const PropertyLine& line) {
  const std::string text = android::base::Trim(line.text);
  // A filter is for properties, and bare keys are the state files' own matter.
  if (!reading_.file->filter.empty() && StartsWith(text, "import ")) return;
  if (IsBareKey(reading_)) return;
  Report("not-a-property", line, Quoted(text) + " is no property, comment or import");
}

void ReadingCheck::CheckProperty(const PropertyLine& line) {
  if (!IsProperty(reading_.content, line.name)) return;
  if (!library_.IsLegalPropertyName(line.name)) {
    Report("illegal-name", line, Quoted(line.name) + " is no legal property name");
  }
  const auto legal = library_.IsLegalPropertyValue(line.name, line.value);
  if (!legal.ok()) {
    Report("illegal-value", line, Quoted(line.name) + ": " + legal.error().message());
  }
}

void ReadingCheck::CheckImport(const PropertyLine& line) {
  if (imports_ == Imports::kUnknown) return;
  // With another carrier's properties it may be another path.
  const bool depends = imports_ == Imports::kOutermost && line.text.find("${") != std::string::npos;
  if (line.outcome == LineOutcome::kImportMissing) {
    // One that cannot be reached is a finding of its own.
    const bool hidden = access(line.name.c_str(), F_OK) != 0 && errno == EACCES;
    if (!depends && !hidden) Report("missing-import", line, line.name + " does not exist");
    return;
  }
  if (line.outcome == LineOutcome::kImportNotExpandable) {
    std::string_view reason = line.said;
    if (!android::base::ConsumePrefix(&reason, "Could not expand filename ': ")) reason = line.name;
    if (!depends) Report("unexpandable-import", line, std::string(reason));
    return;
  }
  // It is logged once for each path.
  std::string_view why = line.said;
  const bool known = android::base::ConsumePrefix(&why, "import refused, ") &&
                     android::base::ConsumeSuffix(&why, ": " + line.name);
  if (!known) why = "an earlier import of it was refused";
  Report("refused-import", line, line.name + " is not imported: " + std::string(why));
}

}  // namespace

std::vector<Reading> ReadingsOf(const BootRecord& record) {
  std::vector<Reading> readings;
  for (const PropertyFile& file : record.property_files) {
    Reading reading = {&file, readings.size(), {}, ContentOf(file.path), {}};
    if (file.importer != kNoImporter) {
      reading.outermost = readings[file.importer].outermost;
      reading.content = readings[file.importer].content;
      reading.import = {readings[file.importer].Path(), file.import_line};
    }
    readings.push_back(std::move(reading));
  }
  std::set<std::string> written;
  for (const Step& step : record.steps) {
    for (const Event& event : step.events) {
      if (const auto* file = std::get_if<FileEvent>(&event.what)) {
        if (file->op == FileOp::kWrite && file->error == 0) written.insert(file->path);
      } else if (const auto* line = std::get_if<PropertyLine>(&event.what)) {
        Reading& reading = readings[line->file];
        if (written.count(reading.file->path) == 0) reading.lines.push_back(line);
      }
    }
  }
  return readings;
}

void CheckReading(const Reading& reading, Imports imports, const Library& library,
                  Findings* findings) {
  ReadingCheck(reading, imports, library, findings).Run();
}

void CheckSetAgain(const BootRecord& record, bool overrides, Findings* findings) {
  const auto& files = record.property_files;
  std::map<std::pair<size_t, std::string_view>, const PropertyLine*> setters;  // of a map's names
  std::set<std::pair<size_t, std::string_view>> set_before;  // by a reading, and names
  for (const Step& step : record.steps) {
    for (const PropertyLine* line : Only<PropertyLine>(step.events)) {
      if (!Sets(*line)) continue;
      const PropertyLine*& setter = setters[{files[line->file].map, line->name}];
      const PropertyLine* before = std::exchange(setter, line);
      const Place at = {files[line->file].device_path, line->line};
      const bool again = !set_before.insert({line->file, line->name}).second;
      if (before == nullptr) continue;
      const Place other = {files[before->file].device_path, before->line};
      const bool replaces = before->value != line->value;
      if (again) {
        findings->Add("duplicate-name", at,
                      Quoted(line->name) + (replaces ? " has another value already, which this one "
                                                       "replaces"
                                                     : " has this value already"),
                      other);
      }
      if (overrides && step.name == "partitions" && replaces &&
          OutermostFile(record, before->file) != OutermostFile(record, line->file)) {
        findings->Add("partition-override", at,
                      Quoted(line->name) + " replaces " + Quoted(before->value), other);
      }
    }
  }
}

}  // namespace extprop
