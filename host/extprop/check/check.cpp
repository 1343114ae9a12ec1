#include "host/extprop/check/check.h"

#include <android-base/file.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/check/checks.h"
#include "host/extprop/trees/device_tree.h"

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Place, path, line)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Finding, at, id, message, other)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(LegacyKey, key, source)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CarrierFiles::Mapping, file, at, key, target)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CarrierFiles, keyed_files, keyed_directories, mappings, nv, ssv,
                                   nv_target, legacy_mapped)

namespace {

constexpr const char* kBindImage = "mount_and_check_load";
constexpr const char* kBindModule = "module_bind_single";
constexpr const char* kMakeDirectories = "bind_basic_point";

// What a survey leaves for the check of a boot, which knows which lines need no further look.
struct Surveyed {
  std::vector<Finding> lines;  // about lines that a boot may have read itself
  std::vector<Finding> others;
  CarrierFiles carriers;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Surveyed, lines, others, carriers)

CarrierFiles CarrierFilesOf(const BootPlan& plan, const Survey& survey) {
  CarrierFiles carriers;
  for (const auto& [path, file] : survey.files) {
    if (file.kind == FileKind::kKeyedFile) {
      carriers.keyed_files[ParseKeyedPath(path).key].push_back(path);
    }
  }
  for (const SurveyedDirectory& directory : survey.directories) {
    carriers.keyed_directories.insert(directory.key);
  }
  for (const PropertyLine* line : Only<PropertyLine>(*survey.record)) {
    const auto& files = survey.record->property_files;
    const std::string& outermost = files[OutermostFile(*survey.record, line->file)].device_path;
    if (ContentOf(outermost) != FileContent::kMapping || !Sets(*line)) continue;
    carriers.mappings.push_back({android::base::Basename(outermost),
                                 {files[line->file].device_path, line->line},
                                 line->name,
                                 line->value});
  }
  carriers.nv = survey.nv;
  carriers.nv_target = survey.nv_target;
  carriers.ssv = survey.ssv;
  const auto mappings = MappingsOf(survey, kFirstMapping);
  for (const std::string& key :
       {ValueIn(plan.properties, kBootCarrier), survey.nv.key, survey.ssv.key}) {
    if (!ValueIn(mappings, key.c_str()).target.empty()) carriers.legacy_mapped = true;
  }
  return carriers;
}

json CheckSurvey(const BootPlan& plan, const Library& library, const Survey& survey) {
  const std::vector<Reading> readings = ReadingsOf(*survey.record);
  Findings lines, others;
  for (const Reading& reading : readings) {
    const auto file = survey.files.find(readings[reading.outermost].Path());
    if (file == survey.files.end() || file->second.kind == FileKind::kState) continue;
    const bool known = file->second.kind != FileKind::kOther;
    CheckReading(reading, known ? Imports::kOutermost : Imports::kUnknown, library, &lines);
  }
  CheckDirectoryOrder(survey, readings, &others);
  for (const auto& [path, error] : survey.unreadable) {
    others.Add("unreadable-file", {path}, error);
  }
  for (const SurveyedDirectory& directory : survey.directories) {
    if (directory.kind.empty() || IsKeyedDirectory(directory.kind)) continue;
    others.Add("unreachable-directory", {directory.path},
               "it is never looked into for the key " + Quoted(directory.key));
  }
  return Surveyed{lines.Sorted(), others.Sorted(), CarrierFilesOf(plan, survey)};
}

// The mount info file is either an image's or that of the modules' directories.
bool NamesModuleDirectories(const BootRecord& boot) {
  bool any = false;
  for (const PropertyLine* line : Only<PropertyLine>(boot)) {
    if (boot.property_files[line->file].path != kMountInfoFile || !Sets(*line)) continue;
    if (line->name == kImageVerified || line->name == kImageRoot) {
      return false;
    }
    any = true;
  }
  return any;
}

// What a boot leaves to be told, and whether the mount info file has to be served by another.
struct Booted {
  std::vector<Finding> findings;
  bool names_module_directories = false;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Booted, findings, names_module_directories)

class BootCheck {
 public:
  BootCheck(const BootPlan& plan, const Library& library, bool overrides)
      : plan_(plan), library_(library), overrides_(overrides) {
    plan_.lines = true;
  }

  // Starts a boot with the COTA service's commands in the end, for what info files are left. Its
  // answer is Booted.
  Result<StartedBoot> Start(const std::vector<const char*>& commands, StartedBoot* survey) const {
    BootPlan plan = plan_;
    for (const char* command : commands) {
      plan.steps.push_back({FindLoader("service", true), command});
    }
    return StartedBoot::Start(plan, [&](const BootRecord& boot) -> json {
      return Booted{Check(boot, survey), NamesModuleDirectories(boot)};
    });
  }

 private:
  std::vector<Finding> Check(const BootRecord& boot, StartedBoot* survey) const {
    Findings findings;
    const std::vector<Reading> readings = ReadingsOf(boot);
    std::set<std::string> read;
    for (const Reading& reading : readings) {
      CheckReading(reading, Imports::kOfBoot, library_, &findings);
      read.insert(reading.Path());
    }
    for (const Entry& entry : boot.refused) {
      findings.Add("refused-property", {kPropertiesPath},
                   "init refuses " + Quoted(entry.name) + ": " + entry.refused);
    }
    for (const Step& step : boot.steps) {
      if (step.error.empty()) continue;
      findings.Add("unfinished-boot", {kBootPath}, TitleOf(step) + ": " + step.error);
    }
    for (const FileEvent* file : Only<FileEvent>(boot)) {
      if (file->error != EACCES || file->op == FileOp::kWrite) continue;
      findings.Add("unreadable-file", {file->path},
                   std::string("it cannot be reached: ") + strerror(EACCES));
    }
    CheckCota(boot, readings, &findings);
    if (overrides_) CheckOverrides(boot, readings, &findings);
    if (survey == nullptr) return findings.Sorted();

    Result<json> answer = survey->Finish();
    if (!answer.ok()) throw std::runtime_error(answer.error().message());
    const auto surveyed = answer->get<Surveyed>();
    for (const Finding& finding : surveyed.lines) {
      if (read.count(finding.at.path) == 0) findings.Add(finding);
    }
    for (const Finding& finding : surveyed.others) findings.Add(finding);
    CheckMappings(surveyed.carriers, &findings);
    CheckReach(surveyed.carriers, read, &findings);
    // A carrier that was asked for has keys that are not the user's.
    if (!plan_.prepare) {
      CheckStateFiles(boot, readings, surveyed.carriers, &findings);
      CheckLegacyKeys(boot, surveyed.carriers, &findings);
    }
    return findings.Sorted();
  }

  BootPlan plan_;
  const Library& library_;
  const bool overrides_;
};

// Adds the findings of a boot, and returns whether the mount info file remains to be served.
Result<bool> Finish(Result<StartedBoot> boot, Findings* findings) {
  if (!boot.ok()) return boot.error();
  Result<json> answer = boot->Finish();
  if (!answer.ok()) return answer.error();
  const auto booted = answer->get<Booted>();
  for (const Finding& finding : booted.findings) findings->Add(finding);
  return booted.names_module_directories;
}

}  // namespace

Result<std::vector<Finding>> CheckTree(const BootPlan& plan, bool overrides) {
  Result<Library> library = LoadLibrary(plan.library);
  if (!library.ok()) return library.error();
  if (library->IsLegalPropertyName == nullptr || library->IsLegalPropertyValue == nullptr) {
    return Error() << "this library lacks the functions that a check calls";
  }
  // The files that no boot has to tell of are read while it goes on.
  Result<StartedBoot> survey =
      StartSurvey(plan, [&](const Survey& found) { return CheckSurvey(plan, *library, found); });
  if (!survey.ok()) return survey.error();
  const BootCheck check(plan, *library, overrides);
  Result<StartedBoot> boot = check.Start({kBindImage, kBindModule}, &*survey);
  Findings findings;
  for (const OutgoingLink& link : LinksOut(plan.device)) {
    findings.Add("outgoing-link", {link.path},
                 "it leads to " + link.target + ", outside the device's files");
  }
  Result<bool> remains = Finish(std::move(boot), &findings);
  if (remains.ok() && *remains) {
    remains = Finish(check.Start({kMakeDirectories}, nullptr), &findings);
  }
  if (!remains.ok()) return remains.error();
  return findings.Sorted();
}

}  // namespace extprop
