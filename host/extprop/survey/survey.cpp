#include "host/extprop/survey/survey.h"

#include <android-base/strings.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/boot/path_origins.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::EndsWith;
using android::base::StartsWith;
using Directory = std::vector<fs::directory_entry>;
using Names = std::vector<std::string>;
using Kind = SurveyedRoot::Kind;

constexpr const char* kModuleRoot = "mount_point";
// On more of the names that lead from a root to a file nothing depends.
constexpr size_t kNamesThatCount = 5;

bool IsDirectory(const fs::directory_entry& entry) {
  std::error_code ignored;
  return entry.is_directory(ignored);
}

bool IsLink(const fs::directory_entry& entry) {
  std::error_code ignored;
  return entry.is_symlink(ignored);
}

bool IsBelow(const std::string& path, const std::string& directory) {
  return StartsWith(path + "/", directory + "/");
}

// Finds the files of one root after the other. Each directory is listed once, and its path has no
// links in it.
class Walk {
 public:
  explicit Walk(Survey* survey) : survey_(*survey) {}

  void AddRoot(const std::string& directory, Kind kind) {
    const std::string path = fs::path(origins_.Find(directory + "/build.prop")).parent_path();
    if (!StartsWith(path, "/") || path == "/") return;
    for (const SurveyedRoot& known : survey_.roots) {
      // An image or module may lie in a partition.
      const bool own = kind == Kind::kImage || kind == Kind::kWaiting;
      if (own ? path == known.path : IsBelow(path, known.path)) return;
    }
    survey_.roots.push_back({path, kind});
    LookInto(path, {});
  }

 private:
  size_t Root() const { return survey_.roots.size() - 1; }

  // Nothing if it is no directory.
  Directory List(const fs::path& directory) {
    std::error_code error;
    Directory entries;
    fs::directory_iterator entry(directory, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
      entries.push_back(*entry);
    }
    if (error && error != std::errc::no_such_file_or_directory &&
        error != std::errc::not_a_directory) {
      survey_.unreadable[directory] = "the directory cannot be read: " + error.message();
    }
    return entries;
  }

  // `way` has the names that lead from the root to the directory.
  void LookInto(const fs::path& directory, const Names& way) {
    // What is mounted at /proc is this machine's.
    if (IsBelow(directory, "/proc")) return;
    for (const fs::directory_entry& entry : List(directory)) {
      Names names = way;
      if (names.size() < kNamesThatCount) names.push_back(entry.path().filename());
      const bool is_directory = IsDirectory(entry);
      const bool keyed = names[0] == "properties" && (names.size() == 2 || names.size() == 3);
      if (keyed && is_directory) {
        survey_.directories.push_back(
            {entry.path(), names[1], names.size() == 3 ? names[2] : "", Root()});
      }
      if (!is_directory || (IsLink(entry) && !IsLookedFor(names))) {
        Add(entry, FileAt(entry.path(), names));
      } else {
        std::error_code ignored;
        LookInto(IsLink(entry) ? fs::canonical(entry.path(), ignored) : entry.path(), names);
      }
    }
  }

  // Whether the library looks for the directory itself, and so follows a link there.
  static bool IsLookedFor(const Names& names) {
    if (names.size() == 1) return names[0] == "etc" || names[0] == "properties";
    return names[0] == "properties" &&
           (names.size() == 2 || (names.size() == 3 && IsKeyedDirectory(names[2])));
  }

  SurveyedFile FileAt(const fs::path& path, const Names& names) const {
    const std::string& name = names.back();
    const std::string way = "/" + android::base::Join(names, '/');
    SurveyedFile file = {FileKind::kOther, Root(), path, {}};
    if (names.size() < kNamesThatCount) file.way = survey_.roots[Root()].path + way;
    if (names.size() == 1 && name == "build.prop") file.kind = FileKind::kBuildFile;
    if (names.size() == 2 && names[0] == "etc") {
      if (name == kNvMapping || name == kFirstMapping) file.kind = FileKind::kMapping;
      file.keyed = ParseKeyedPath(way);
      if (!file.keyed.kind.empty()) file.kind = FileKind::kKeyedFile;
    }
    if (names.size() == 4 && names[0] == "properties" && IsKeyedDirectory(names[2])) {
      file.kind = FileKind::kKeyedInOrder;
      file.keyed = ParseKeyedPath(way);
    }
    return file;
  }

  // The library reads no links; where it looks for a file, it is worth telling that one is there.
  void Add(const fs::directory_entry& entry, const SurveyedFile& file) {
    std::error_code ignored;
    if (!EndsWith(entry.path().native(), ".prop")) return;
    if (IsLink(entry) ? file.kind != FileKind::kOther : entry.is_regular_file(ignored)) {
      const auto [known, is_new] = survey_.files.try_emplace(entry.path(), file);
      if (!is_new && file.kind != FileKind::kOther) known->second = file;
    } else if (!IsLink(entry) && !IsDirectory(entry)) {
      survey_.unreadable[entry.path()] = WhyUnread(ENXIO);
    }
  }

  Survey& survey_;
  PathOrigins origins_;
};

// Takes a survey as a step of a boot.
class Surveyor {
 public:
  Surveyor(const BootPlan& plan, const Library& library) : plan_(plan), library_(library) {
    for (const PlannedStep& step : plan.steps) {
      if (step.loader == FindLoader("partitions", false)) loads_partitions_ = true;
    }
  }

  Result<StartedBoot> Start(const SurveyDigest& digest) {
    const Loader files = {"all property files", nullptr, "", [this](auto...) { ReadFiles(); },
                          false};
    plan_.title = "the reading of all property files";
    plan_.steps = {{&files, ""}};
    plan_.lines = true;
    plan_.opens_fifos = false;
    plan_.keep_fd = -1;
    return StartedBoot::Start(plan_, [&](const BootRecord& record) {
      survey_.record = &record;
      return digest(survey_);
    });
  }

 private:
  void ReadFiles() {
    Walk walk(&survey_);
    for (const std::string& root : *library_.ExtensionPartitionRoots)
      walk.AddRoot(root, Kind::kPartition);
    for (const char* root : kTopPlaces) walk.AddRoot(root, Kind::kPlace);
    walk.AddRoot(ValueIn(plan_.properties, kImageRoot), Kind::kImage);
    for (const char* info : kInfoFiles) {
      for (const auto& [name, value] : ReadState(info)) {
        if (name == kImageRoot || name == kModuleRoot) walk.AddRoot(value, Kind::kWaiting);
      }
    }
    for (size_t root = 0; root < survey_.roots.size(); ++root) {
      for (const auto& [path, file] : survey_.files) {
        if (file.kind != FileKind::kState && file.root == root && !IsOfBoot(file)) Read(file.way);
      }
    }
    for (const char* state : kStateFiles) ReadState(state);
  }

  bool IsOfBoot(const SurveyedFile& file) const {
    return loads_partitions_ && file.kind == FileKind::kBuildFile &&
           survey_.roots[file.root].kind == Kind::kPartition;
  }

  android::init::PropertyMap ReadState(const std::string& path) {
    if (access(path.c_str(), F_OK) != 0) return {};
    survey_.files[PathOrigins().Find(path)] = {FileKind::kState, 0, path, {}};
    return Read(path);
  }

  android::init::PropertyMap Read(const std::string& path) {
    android::init::PropertyMap map;
    library_.load_properties_from_file_without_se(path.c_str(), nullptr, &map);
    return map;
  }

  BootPlan plan_;
  const Library& library_;
  bool loads_partitions_ = false;
  Survey survey_;
};

}  // namespace

std::vector<MappingLine> MappingLinesOf(const Survey& survey) {
  std::vector<MappingLine> lines;
  for (const PropertyLine* line : Only<PropertyLine>(*survey.record)) {
    const size_t outermost = OutermostFile(*survey.record, line->file);
    const fs::path path = survey.record->property_files[outermost].device_path;
    const SurveyedFile file = ValueIn(survey.files, path);
    if (file.kind != FileKind::kMapping || !Sets(*line)) continue;
    if (survey.roots[file.root].kind != Kind::kPartition) continue;
    lines.push_back({path.filename(), file.root, line});
  }
  return lines;
}

std::map<std::string, MappedKey> MappingsOf(const Survey& survey, const std::string& file_name) {
  std::map<size_t, std::map<std::string, std::string>> by_root;
  for (const auto& [file, root, line] : MappingLinesOf(survey)) {
    if (file == file_name && !line->name.empty()) by_root[root][line->name] = line->value;
  }
  // The library takes the last partition's that has the key.
  std::map<std::string, MappedKey> mappings;
  for (const auto& [root, lines] : by_root) {
    for (const auto& [key, target] : lines) {
      mappings[key].target = target;
      mappings[key].files.push_back(survey.roots[root].path + "/etc/" + file_name);
    }
  }
  return mappings;
}

Result<StartedBoot> StartSurvey(const BootPlan& plan, const SurveyDigest& digest) {
  Result<Library> library = LoadLibrary(plan.library);
  if (!library.ok()) return library.error();
  if (library->load_properties_from_file_without_se == nullptr ||
      library->ExtensionPartitionRoots == nullptr) {
    return Error() << "this library does not offer its parser";
  }
  return Surveyor(plan, *library).Start(digest);
}

}  // namespace extprop
