#include "host/extprop/explain/unread_settings.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <fnmatch.h>

#include <map>
#include <set>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/survey/survey.h"

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FoundLine, path, line, name, value, root, awaits)

namespace {

using android::base::Dirname;
using android::base::StartsWith;

bool IsGlob(const std::string& pattern) {
  return pattern.find_first_of("*?[\\") != std::string::npos;
}

json LinesOf(const Survey& survey, const std::string& pattern) {
  json found = json::array();
  for (const PropertyLine* line : Only<PropertyLine>(*survey.record)) {
    const PropertyFile& read = survey.record->property_files[line->file];
    if (!Sets(*line) || read.importer != kNoImporter) continue;
    const auto file = survey.files.find(read.device_path);
    if (file == survey.files.end() || file->second.kind == FileKind::kMapping) continue;
    // What else an info file has are no properties.
    const bool property = ContentOf(read.device_path) != FileContent::kInfo ||
                          StartsWith(line->name, "sys.") || StartsWith(line->name, "ro.");
    if (!property) continue;
    FoundLine at = {read.device_path, line->line, line->name, line->value, ""};
    if (file->second.kind != FileKind::kState) {
      const SurveyedRoot& root = survey.roots[file->second.root];
      at.root = root.path;
      if (root.kind == SurveyedRoot::Kind::kImage) at.awaits = "loaded";
      if (root.kind == SurveyedRoot::Kind::kWaiting) at.awaits = "bound";
    } else if (IsGlob(pattern)) {
      continue;
    }
    found.push_back(at);
  }
  return found;
}

// What a boot read, and by which keys.
class WhatWasRead {
 public:
  explicit WhatWasRead(const BootRecord& record) : record_(record) {
    for (const PropertyFile& file : record.property_files) files_.insert(file.device_path);
    for (const FileEvent* file : Only<FileEvent>(record)) TakeLookedFor(*file);
  }

  // Empty where the histories of the record have the line, or a hand-over the property.
  std::string WhyNot(const FoundLine& line) const {
    if (files_.count(line.path) != 0) {
      // Much of what an info file holds is handed over by some steps only.
      const bool told = ContentOf(line.path) != FileContent::kInfo || IsHandedOver(line.name);
      return told ? "" : "read, but not among what is handed over of this file";
    }
    if (line.root.empty()) return "not read: no step of this boot reads it";
    if (!line.awaits.empty() && !HasAnyBelow(line.root)) return WhyNotImage(line);
    const auto [kind, key] = ParseKeyedPath(line.path);
    const std::string directory = Dirname(line.path);
    if (kind == "file" && directory == line.root + "/etc") return WhyNotKeyed(kind, key);
    if (!kind.empty() && Dirname(directory) == line.root + "/properties/" + key) {
      return WhyNotKeyed(kind, key);
    }
    if (line.path == line.root + "/build.prop") return "not read: no step of this boot loads it";
    if (StartsWith(line.path, line.root + "/properties/")) {
      return "not read: no key reaches this directory";
    }
    if (line.path == "/my_company/etc/build.prop" ||
        line.path == "/mnt/vendor/my_company/etc/build.prop") {
      return "not read: only the special edition's loader, quasar, loads it";
    }
    return "not read: no file that was read imports it" + NearlyImported(line.path);
  }

 private:
  // An import that would name the file, or might, but was not followed; with what stands before it.
  std::string NearlyImported(const std::string& path) const {
    for (const PropertyLine* line : Only<PropertyLine>(record_)) {
      const PropertyFile& file = record_.property_files[line->file];
      const std::string place = file.device_path + ":" + std::to_string(line->line);
      const std::string text = android::base::Trim(line->text);
      if (line->outcome == LineOutcome::kImportNotExpandable) {
        return "; which file " + place + " imports cannot be told, as it cannot be expanded";
      }
      if (!file.filter.empty() && StartsWith(text, "import ") &&
          text.find(path) != std::string::npos) {
        return "; " + place +
               " names it in a file that is read with a filter, which imports nothing";
      }
    }
    return "";
  }

  // The library looks for the files and directories of every key that it has.
  void TakeLookedFor(const FileEvent& file) {
    if (file.op != FileOp::kAccess && file.op != FileOp::kList) return;
    const auto [kind, key] =
        ParseKeyedPath(file.op == FileOp::kList ? file.path + "/.prop" : file.path);
    if (!kind.empty()) keys_[kind].insert(key);
  }

  bool IsHandedOver(const std::string& name) const {
    for (const HandOver* map : Only<HandOver>(record_)) {
      if (FindEntry(*map, name) != nullptr) return true;
    }
    return false;
  }

  bool HasAnyBelow(const std::string& root) const {
    const auto first = files_.lower_bound(root + "/");
    return first != files_.end() && StartsWith(*first, root + "/");
  }

  std::string WhyNotImage(const FoundLine& line) const {
    if (line.awaits == "bound") {
      return "not read: no step of this boot binds the COTA image or module " + line.root;
    }
    const bool verified = ValueIn(record_.properties, kImageVerified) == "1";
    return "not read: no step of this boot loads the COTA image " + line.root +
           (verified ? "" : ", which is not verified");
  }

  std::string WhyNotKeyed(const std::string& kind, const std::string& key) const {
    const std::set<std::string>& tried = ValueIn(keys_, kind);
    if (tried.count(key) != 0) return "not read: no step of this boot loads it";
    const std::string what = kind == "file" ? "nv, ssv or operator" : kind;
    return "not read: for " + what + " key " + key + "; this boot has " +
           (tried.empty() ? "none" : android::base::Join(tried, ", "));
  }

  const BootRecord& record_;
  std::set<std::string> files_;
  std::map<std::string, std::set<std::string>> keys_;  // by kind of path
};

}  // namespace

bool Matches(const std::string& pattern, const std::string& name) {
  return name == pattern || (IsGlob(pattern) && fnmatch(pattern.c_str(), name.c_str(), 0) == 0);
}

Result<StartedBoot> StartSearch(const BootPlan& plan, const std::string& pattern) {
  BootPlan matching = plan;
  matching.keep_line = [&](const std::string& name) { return Matches(pattern, name); };
  return StartSurvey(matching, [&](const Survey& survey) { return LinesOf(survey, pattern); });
}

Result<std::vector<FoundLine>> FinishSearch(StartedBoot* search) {
  Result<json> lines = search->Finish();
  if (!lines.ok()) return lines.error();
  return lines->get<std::vector<FoundLine>>();
}

Result<std::vector<Setting>> UnreadSettings(StartedBoot* search, const BootRecord& record) {
  const WhatWasRead read(record);  // while the search goes on
  Result<std::vector<FoundLine>> lines = FinishSearch(search);
  if (!lines.ok()) return lines.error();
  std::vector<Setting> settings;
  for (const FoundLine& line : *lines) {
    Setting setting;
    setting.why = read.WhyNot(line);
    if (setting.why.empty()) continue;
    setting.name = line.name;
    setting.value = line.value;
    SetPlace(line.path, line.line, &setting);
    settings.push_back(std::move(setting));
  }
  return settings;
}

}  // namespace extprop
