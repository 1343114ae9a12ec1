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
using Kind = SurveyedRoot::Kind;

constexpr const char* kModuleRoot = "mount_point";

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
    // What is mounted at /proc is this machine's.
    if (!StartsWith(path, "/") || path == "/" || IsBelow(path, "/proc")) return;
    for (const SurveyedRoot& known : survey_.roots) {
      if (IsBelow(path, known.path)) return;
    }
    survey_.roots.push_back({path, kind});
    for (const fs::directory_entry& entry : List(path)) {
      const std::string name = entry.path().filename();
      if (name == "etc") {
        LookIntoEtc(entry);
      } else if (name == "properties") {
        LookIntoProperties(entry);
      } else {
        LookIntoOther(entry);
      }
    }
  }

 private:
  size_t Root() const { return survey_.roots.size() - 1; }

  // Nothing if it is no directory; a link to one is followed, as the library does.
  Directory List(const fs::directory_entry& directory) {
    std::error_code ignored;
    return List(IsLink(directory) ? fs::canonical(directory.path(), ignored) : directory.path());
  }

  Directory List(const fs::path& directory) {
    std::error_code error;
    Directory entries;
    fs::directory_iterator entry(directory, error);
    if (error && error != std::errc::no_such_file_or_directory &&
        error != std::errc::not_a_directory) {
      survey_.unreadable[directory] = "the directory cannot be read: " + error.message();
    }
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
      entries.push_back(*entry);
    }
    return entries;
  }

  void LookIntoEtc(const fs::directory_entry& etc) {
    for (const fs::directory_entry& entry : List(etc)) {
      const std::string name = entry.path().filename();
      if (name == kNvMapping || name == kFirstMapping) {
        Add(entry, FileKind::kMapping);
      } else if (!ParseKeyedPath(entry.path()).kind.empty() && !IsDirectory(entry)) {
        Add(entry, FileKind::kKeyedFile);
      } else {
        LookIntoOther(entry);
      }
    }
  }

  void LookIntoProperties(const fs::directory_entry& properties) {
    for (const fs::directory_entry& keyed : List(properties)) {
      if (!IsDirectory(keyed)) {
        Add(keyed, FileKind::kOther);
        continue;
      }
      const std::string key = keyed.path().filename();
      survey_.directories.push_back({keyed.path(), key, "", Root()});
      for (const fs::directory_entry& entry : List(keyed)) LookIntoKeyed(key, entry);
    }
  }

  void LookIntoKeyed(const std::string& key, const fs::directory_entry& entry) {
    if (!IsDirectory(entry)) return Add(entry, FileKind::kOther);
    const std::string kind = entry.path().filename();
    survey_.directories.push_back({entry.path(), key, kind, Root()});
    if (!IsKeyedDirectory(kind)) return LookIntoOther(entry);
    for (const fs::directory_entry& file : List(entry)) {
      if (IsDirectory(file)) {
        LookIntoOther(file);
      } else {
        Add(file, FileKind::kKeyedInOrder);
      }
    }
  }

  void LookIntoOther(const fs::directory_entry& place) {
    if (IsLink(place) || !IsDirectory(place)) return Add(place, FileKind::kOther);
    for (const fs::directory_entry& entry : List(place)) LookIntoOther(entry);
  }

  // The library reads no links; where it looks for a file, it is worth telling that one is there.
  void Add(const fs::directory_entry& entry, FileKind kind) {
    std::error_code ignored;
    if (!EndsWith(entry.path().native(), ".prop")) return;
    if (IsLink(entry) ? kind != FileKind::kOther : entry.is_regular_file(ignored)) {
      survey_.files.try_emplace(entry.path(), SurveyedFile{kind, Root()});
    } else if (!IsLink(entry) && !IsDirectory(entry)) {
      survey_.unreadable[entry.path()] = "no file: a boot that reads it may wait for ever";
    }
  }

  Survey& survey_;
  PathOrigins origins_;
};

// The file that the step read first, and could.
std::string SourceIn(const Step& step) {
  for (const FileEvent* file : Only<FileEvent>(step.events)) {
    if (file->op == FileOp::kRead && file->error == 0) return PathOrigins().Find(file->path);
  }
  return "";
}

// Takes a survey as steps of a boot.
class Surveyor {
 public:
  Surveyor(const BootPlan& plan, const Library& library) : plan_(plan), library_(library) {
    for (const PlannedStep& step : plan.steps) {
      if (step.loader == FindLoader("partitions", false)) loads_partitions_ = true;
    }
  }

  Result<StartedBoot> Start(const SurveyDigest& digest) {
    const Loader nv_key =
        Reader("NV key", [this] { library_.load_old_nv_key(&survey_.nv.key, &survey_.nv_target); });
    const Loader ssv_key =
        Reader("SSV key", [this] { library_.read_old_ssv_key(&survey_.ssv.key); });
    const Loader files = Reader("all property files", [this] { ReadFiles(); });
    plan_.title = "the reading of all property files";
    plan_.steps = {{&nv_key, ""}, {&ssv_key, ""}, {&files, ""}};
    plan_.lines = true;
    plan_.keep_fd = -1;
    return StartedBoot::Start(plan_, [&](const BootRecord& record) {
      survey_.record = &record;
      survey_.nv.source = SourceIn(record.steps[0]);
      survey_.ssv.source = SourceIn(record.steps[1]);
      return digest(survey_);
    });
  }

 private:
  static Loader Reader(const char* what, const std::function<void()>& read) {
    return {what, nullptr, "", [read](auto...) { read(); }, false};
  }

  void ReadFiles() {
    Walk walk(&survey_);
    for (const std::string& root : *library_.ExtensionPartitionRoots)
      walk.AddRoot(root, Kind::kPartition);
    for (const char* root : {"/my_company", "/my_carrier"}) walk.AddRoot(root, Kind::kPlace);
    walk.AddRoot(ValueIn(plan_.properties, kImageRoot), Kind::kImage);
    for (const char* info : kInfoFiles) {
      for (const auto& [name, value] : ReadState(info)) {
        if (name == kImageRoot || name == kModuleRoot) walk.AddRoot(value, Kind::kWaiting);
      }
    }
    for (size_t root = 0; root < survey_.roots.size(); ++root) {
      for (const auto& [path, file] : survey_.files) {
        if (file.kind != FileKind::kState && file.root == root && !IsOfBoot(path)) Read(path);
      }
    }
    for (const char* state : kStateFiles) ReadState(state);
  }

  bool IsOfBoot(const std::string& path) const {
    return loads_partitions_ &&
           std::any_of(survey_.roots.begin(), survey_.roots.end(), [&](const SurveyedRoot& root) {
             return root.kind == Kind::kPartition && path == root.path + "/build.prop";
           });
  }

  android::init::PropertyMap ReadState(const std::string& path) {
    if (access(path.c_str(), F_OK) != 0) return {};
    survey_.files[PathOrigins().Find(path)] = {FileKind::kState, 0};
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

std::map<std::string, MappedKey> MappingsOf(const Survey& survey, const std::string& file_name) {
  std::map<size_t, std::map<std::string, std::string>> by_root;
  for (const PropertyLine* line : Only<PropertyLine>(*survey.record)) {
    const size_t outermost = OutermostFile(*survey.record, line->file);
    const fs::path path = survey.record->property_files[outermost].device_path;
    const auto file = survey.files.find(path);
    if (file == survey.files.end() || file->second.kind != FileKind::kMapping) continue;
    if (path.filename() == file_name && Sets(*line) && !line->name.empty()) {
      by_root[file->second.root][line->name] = line->value;
    }
  }
  // The library takes the last partition's that has the key.
  std::map<std::string, MappedKey> mappings;
  for (const auto& [root, lines] : by_root) {
    if (survey.roots[root].kind != SurveyedRoot::Kind::kPartition) continue;
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
      library->ExtensionPartitionRoots == nullptr || library->load_old_nv_key == nullptr ||
      library->read_old_ssv_key == nullptr) {
    return Error() << "this library does not offer its parser";
  }
  return Surveyor(plan, *library).Start(digest);
}

}  // namespace extprop
