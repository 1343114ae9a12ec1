#include "host/extprop/check/checks.h"

#include <android-base/strings.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/trees/device_tree.h"

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Place, path, line)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Finding, at, id, message, other)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(MappedKey, target, files)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CarrierFiles::Mapping, file, at, key, target)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CarrierFiles, keyed_files, keyed_directories, mappings, nv_keys,
                                   first_keys, no_partition)

namespace {

using android::base::StartsWith;

// Returns whether an import of the record may name the path with other properties.
bool MayImport(const BootRecord& record, const std::string& path) {
  for (const PropertyLine* line : Only<PropertyLine>(record)) {
    const std::string text = android::base::Trim(line->text);
    const size_t expanded = text.find("${");
    const size_t name = text.find_first_not_of(' ', strlen("import "));
    if (!StartsWith(text, "import ") || expanded == std::string::npos) continue;
    if (StartsWith(path, text.substr(name, expanded - name))) return true;
  }
  return false;
}

// What a survey leaves for the check of a boot, which knows which files need no further look.
struct Surveyed {
  std::vector<Finding> files;  // about files that a boot may have read itself
  std::vector<Finding> others;
  CarrierFiles carriers;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Surveyed, files, others, carriers)

CarrierFiles CarrierFilesOf(const Survey& survey) {
  CarrierFiles carriers;
  for (const auto& [path, file] : survey.files) {
    if (file.kind == FileKind::kKeyedFile) {
      carriers.keyed_files[file.keyed.key].push_back(path);
    }
  }
  for (const SurveyedDirectory& directory : survey.directories) {
    carriers.keyed_directories.insert(directory.key);
  }
  for (const MappingLine& each : MappingLinesOf(survey)) {
    const std::string& path = survey.record->property_files[each.line->file].device_path;
    carriers.mappings.push_back(
        {each.file, {path, each.line->line}, each.line->name, each.line->value});
  }
  carriers.nv_keys = MappingsOf(survey, kNvMapping);
  carriers.first_keys = MappingsOf(survey, kFirstMapping);
  const bool whole = survey.unreadable.empty() && Unreadable(*survey.record).empty();
  carriers.no_partition = whole ? "no partition" : "no partition that could be looked into";
  return carriers;
}

json CheckSurvey(const Library& library, const Survey& survey) {
  const std::vector<Reading> readings = ReadingsOf(*survey.record);
  Findings files, others;
  std::set<std::string> imported;
  for (const Reading& reading : readings) {
    const auto file = survey.files.find(readings[reading.outermost].Path());
    if (!reading.import.path.empty()) imported.insert(reading.Path());
    if (file == survey.files.end() || file->second.kind == FileKind::kState) continue;
    // What is to be bound yet has other paths then.
    const bool known = file->second.kind != FileKind::kOther &&
                       survey.roots[file->second.root].kind != SurveyedRoot::Kind::kWaiting;
    CheckReading(reading, known ? Imports::kOutermost : Imports::kUnknown, library, &files);
  }
  CheckSetAgain(*survey.record, false, &files);
  CheckDirectoryOrder(survey, &others);
  for (const auto& [path, error] : survey.unreadable) {
    others.Add("unreadable-file", {path}, error);
  }
  std::vector<std::string> unreachable;
  for (const SurveyedDirectory& directory : survey.directories) {
    if (directory.kind.empty() || IsKeyedDirectory(directory.kind)) continue;
    unreachable.push_back(directory.path + "/");
    others.Add("unreachable-directory", {directory.path},
               "it is never looked into for the key " + Quoted(directory.key));
  }
  for (const auto& each : survey.files) {
    const std::string& path = each.first;
    const auto holds = [&](const std::string& directory) { return StartsWith(path, directory); };
    if (each.second.kind != FileKind::kOther || imported.count(path) != 0) continue;
    if (MayImport(*survey.record, path)) continue;
    if (!holds(survey.roots[each.second.root].path + "/properties/")) continue;
    if (std::any_of(unreachable.begin(), unreachable.end(), holds)) continue;
    files.Add("unreached-file", {path},
              "no key leads here: a carrier's files lie in properties/KEY/KIND, and nothing that "
              "is known imports it");
  }
  return Surveyed{files.Sorted(), others.Sorted(), CarrierFilesOf(survey)};
}

// The mount info file is either an image's or that of the modules' directories.
bool NamesModuleDirectories(const BootRecord& boot) {
  bool any = false;
  for (const PropertyLine* line : Only<PropertyLine>(boot)) {
    if (boot.property_files[line->file].path != kMountInfoFile || !Sets(*line)) continue;
    if (line->name == kImageVerified || line->name == kImageRoot) return false;
    const bool is_directory = line->value[0] == '/' && line->name != "bind_point";
    any = any || (is_directory && !IsProperty(FileContent::kInfo, line->name));
  }
  return any;
}

std::vector<Finding> CheckBoot(const BootPlan& plan, const Library& library, bool overrides,
                               const BootRecord& boot, StartedBoot* survey) {
  Findings findings;
  const std::vector<Reading> readings = ReadingsOf(boot);
  std::set<std::string> read;
  for (const Reading& reading : readings) {
    CheckReading(reading, Imports::kOfBoot, library, &findings);
    read.insert({reading.Path(), reading.file->path});
  }
  CheckSetAgain(boot, overrides, &findings);
  // Of property files the readings tell.
  for (const auto& [path, why] : Unreadable(boot, true)) {
    if (read.count(path) == 0) findings.Add("unreadable-file", {path}, why);
  }
  CheckCota(boot, &findings);
  for (const Entry& entry : boot.refused) {
    findings.Add("refused-property", {kPropertiesPath},
                 "init refuses " + Quoted(entry.name) + ": " + entry.refused);
  }
  const std::string error = ErrorOf(boot);
  if (!error.empty()) findings.Add("unfinished-boot", {kBootPath}, error);

  Result<json> answer = survey->Finish();
  if (!answer.ok()) throw std::runtime_error(answer.error().message());
  const auto surveyed = answer->get<Surveyed>();
  for (const Finding& finding : surveyed.files) {
    const bool stray = finding.id == "unreached-file";
    if (read.count(finding.at.path) != 0 || (stray && MayImport(boot, finding.at.path))) continue;
    findings.Add(finding);
  }
  for (const Finding& finding : surveyed.others) findings.Add(finding);
  CheckMappings(surveyed.carriers, &findings);
  CheckReach(surveyed.carriers, read, &findings);
  // A carrier that was asked for has keys that are not the user's.
  if (!plan.prepare) {
    CheckStateFiles(boot, readings, surveyed.carriers, &findings);
    CheckLegacyKeys(boot, surveyed.carriers, &findings);
  }
  return findings.Sorted();
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
      StartSurvey(plan, [&](const Survey& found) { return CheckSurvey(*library, found); });
  if (!survey.ok()) return survey.error();
  Findings findings;
  for (const OutgoingLink& link : LinksOut(plan.device)) {
    findings.Add("outgoing-link", {link.path},
                 "it leads to " + link.target + ", outside the device's files");
  }
  // What info files are left the COTA service's commands are for. Of the mount info file's it takes
  // a boot to tell which.
  for (const char* command : {"mount_and_check_load", "bind_basic_point"}) {
    BootPlan with_cota = plan;
    with_cota.lines = true;
    with_cota.steps.push_back({FindLoader("service", true), command});
    with_cota.steps.push_back({FindLoader("service", true), "module_bind_single"});
    const bool is_last = command == std::string("bind_basic_point");
    Result<json> answer = RunBoot(with_cota, [&](const BootRecord& boot) -> json {
      if (!is_last && NamesModuleDirectories(boot)) return nullptr;
      return CheckBoot(plan, *library, overrides, boot, &*survey);
    });
    if (!answer.ok()) return answer.error();
    if (answer->is_null()) continue;
    for (const json& found : *answer) findings.Add(found.get<Finding>());
    break;
  }
  return findings.Sorted();
}

}  // namespace extprop
