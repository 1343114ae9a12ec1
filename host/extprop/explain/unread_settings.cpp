#include "host/extprop/explain/unread_settings.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <fnmatch.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <utility>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/boot/path_origins.h"
#include "host/extprop/survey/survey.h"

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FoundLine, path, line, name, value, root, awaits, kind, key,
                                   importer)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(SearchResult, lines, unreadable)

namespace {

using android::base::StartsWith;

bool IsGlob(const std::string& pattern) {
  return pattern.find_first_of("*?[\\") != std::string::npos;
}

std::string PlaceOf(const PropertyFile& file, unsigned line) {
  return file.device_path + ":" + std::to_string(line);
}

SearchResult Search(const Survey& survey) {
  SearchResult result = {{}, survey.unreadable};
  result.unreadable.merge(Unreadable(*survey.record));
  const auto& files = survey.record->property_files;
  const std::string special_edition = PathOrigins().Find(kSpecialEditionFile);
  std::set<std::pair<std::string, unsigned>> by_import;
  for (const PropertyLine* line : Only<PropertyLine>(*survey.record)) {
    const PropertyFile& read = files[line->file];
    const std::string& path = read.device_path;
    const PropertyFile& outermost = files[OutermostFile(*survey.record, line->file)];
    if (!Sets(*line) || !IsProperty(ContentOf(outermost.path), line->name)) continue;
    FoundLine found = {path, line->line, line->name, line->value, ""};
    const auto surveyed = survey.files.find(path);
    const bool imported = read.importer != kNoImporter;
    // What is imported and surveyed has been read by itself too.
    if (imported == (surveyed != survey.files.end())) continue;
    if (imported) {
      // Only imports lead to it; the first one is as good as any.
      if (!by_import.insert({path, line->line}).second) continue;
      found.importer = PlaceOf(files[read.importer], read.import_line);
    } else if (surveyed->second.kind != FileKind::kState) {
      const SurveyedRoot& root = survey.roots[surveyed->second.root];
      found.root = root.path;
      found.kind = surveyed->second.keyed.kind;
      found.key = surveyed->second.keyed.key;
      if (path == special_edition) found.awaits = "quasar";
      if (root.kind == SurveyedRoot::Kind::kImage) found.awaits = "loaded";
      if (root.kind == SurveyedRoot::Kind::kWaiting) found.awaits = "bound";
    }
    result.lines.push_back(std::move(found));
  }
  return result;
}

// What a boot read, and by which keys.
class WhatWasRead {
 public:
  explicit WhatWasRead(const BootRecord& record) : record_(record) {
    for (const PropertyFile& file : record.property_files) {
      if (file.error.empty()) files_.insert(file.device_path);
    }
    for (const MountEvent* mount : Only<MountEvent>(record)) {
      if (mount->error == 0) origins_.AddMount(mount->source, mount->target);
    }
    std::set<std::string> imported;
    for (const PropertyLine* line : Only<PropertyLine>(record)) {
      if (IsImport(*line)) imported.insert(line->name);
      const bool not_followed = line->outcome == LineOutcome::kImportRefused ||
                                line->outcome == LineOutcome::kImportNotExpandable;
      const bool filtered = !record.property_files[line->file].filter.empty() &&
                            StartsWith(android::base::Trim(line->text), "import ");
      if (not_followed || filtered) imports_not_followed_.push_back(line);
    }
    // The library looks for the files and directories of every key that it has.
    for (const FileEvent* file : Only<FileEvent>(record)) {
      const bool lists = file->op == FileOp::kList;
      if ((!lists && file->op != FileOp::kAccess) || imported.count(file->path) != 0) continue;
      const auto [kind, key] = ParseKeyedPath(lists ? file->path + "/.prop" : file->path);
      if (!kind.empty()) keys_[kind].insert(key);
    }
  }

  // Empty where the histories of the record have the line, or a hand-over the property.
  std::string WhyNot(const FoundLine& line) {
    if (files_.count(line.path) != 0) {
      // Much of what an info file holds is handed over by some steps only.
      const bool told = ContentOf(line.path) != FileContent::kInfo || IsHandedOver(line);
      return told ? "" : "read, but not among what is handed over of this file";
    }
    if (!line.importer.empty()) {
      return "not read: no file that was read imports it, as " + line.importer + " does" +
             NearlyImported(line.path);
    }
    if (line.root.empty()) return "not read: no step of this boot reads it";
    if (line.awaits == "quasar") {
      return "not read: only the special edition's loader, quasar, loads it";
    }
    if (!line.awaits.empty() && !HasAnyBelow(line.root)) return WhyNotImage(line);
    if (!line.kind.empty()) return WhyNotKeyed(line.kind, line.key);
    if (line.path == line.root + "/build.prop") {
      return "not read: no step of this boot loads it" + NearlyImported(line.path);
    }
    if (StartsWith(line.path, line.root + "/properties/")) {
      return "not read: no key reaches this directory";
    }
    return "not read: no file that was read imports it" + NearlyImported(line.path);
  }

 private:
  static bool IsImport(const PropertyLine& line) {
    return line.outcome == LineOutcome::kImportFollowed ||
           line.outcome == LineOutcome::kImportMissing ||
           line.outcome == LineOutcome::kImportRefused;
  }

  // What would have led to the file but for one thing, or may have; with what stands before it.
  std::string NearlyImported(const std::string& path) {
    for (const PropertyFile& file : record_.property_files) {
      std::string target;
      if (file.error.empty() || !android::base::Realpath(file.path, &target)) continue;
      if (target == path && target != file.device_path) {
        return "; " + file.device_path + " is a link to it, which is not followed";
      }
    }
    std::string filtered, unknown;
    for (const PropertyLine* line : imports_not_followed_) {
      const std::string place = PlaceOf(record_.property_files[line->file], line->line);
      if (line->outcome == LineOutcome::kImportRefused && origins_.Find(line->name) == path) {
        return "; " + place + " does, but that import is refused";
      }
      if (line->outcome == LineOutcome::kImportNotExpandable) {
        unknown = "; which file " + place + " imports cannot be told, as it cannot be expanded";
      }
      if (line->outcome == LineOutcome::kNoProperty && line->text.find(path) != std::string::npos) {
        filtered =
            "; " + place + " names it in a file that is read with a filter, which imports nothing";
      }
    }
    return filtered.empty() ? unknown : filtered;
  }

  // Whether a step that read the line's file handed the property over as the line has it.
  bool IsHandedOver(const FoundLine& line) const {
    for (const PropertyFile& file : record_.property_files) {
      if (file.device_path != line.path) continue;
      for (const HandOver* map : Only<HandOver>(record_.steps[file.step].events)) {
        const Entry* entry = FindEntry(*map, line.name);
        if (entry != nullptr && entry->value == line.value) return true;
      }
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
    if (tried.empty() && !LooksFor(kind)) {
      return "not read: for " + what + " key " + key + "; no step of this boot looks for such";
    }
    return "not read: for " + what + " key " + key + "; this boot has " +
           (tried.empty() ? "none" : android::base::Join(tried, ", "));
  }

  // Whether any step does, if it has a key of the kind of path.
  bool LooksFor(const std::string& kind) const {
    return std::any_of(record_.steps.begin(), record_.steps.end(), [&](const Step& step) {
      if (step.name == "simswitch" && !step.argument.empty()) {
        return strcasestr(step.argument.c_str(), kind.c_str()) != nullptr;
      }
      return step.name != "partitions" && step.name != "partition" && step.name != "media";
    });
  }

  const BootRecord& record_;
  PathOrigins origins_;
  std::vector<const PropertyLine*> imports_not_followed_;
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
  return StartSurvey(matching, [](const Survey& survey) -> json { return Search(survey); });
}

Result<SearchResult> FinishSearch(StartedBoot* search) {
  Result<json> result = search->Finish();
  if (!result.ok()) return result.error();
  return result->get<SearchResult>();
}

std::vector<Setting> UnreadSettings(const std::vector<FoundLine>& lines, const BootRecord& record) {
  WhatWasRead read(record);
  std::vector<Setting> settings;
  for (const FoundLine& line : lines) {
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
