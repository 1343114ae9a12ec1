#include <android-base/file.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "host/extprop/check/check_context.h"
#include "host/extprop/check/stand_in.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::Result;
using android::init::PropertyMap;

// What the library logs about an import, and which file's name has to follow for it to mean the
// line that is tried and none further down.
struct ImportMessage {
  const char* text;
  const char* id;
  enum { kImported, kImporting, kAny } file;
};

constexpr ImportMessage kImportMessages[] = {
    {"Could not expand filename ': ", "unexpandable-import", ImportMessage::kImported},
    {"expand filename load failed : ", "unreadable-file", ImportMessage::kImported},
    {"import refused, the file is being read already: ", "refused-import",
     ImportMessage::kImporting},
    {"import refused, nested too deep: ", "refused-import", ImportMessage::kAny},
    {"import refused, too many files: ", "refused-import", ImportMessage::kAny},
};

bool SameFile(const std::string& one, const std::string& other) {
  std::error_code none;
  return fs::equivalent(one, other, none);
}

// Gives one property file to the library line by line, in its own place, so that an import that
// leads back to it is recognised.
class FileCheck {
 public:
  FileCheck(CheckContext* context, const std::string& path) : context_(*context), path_(path) {}

  // Adds what the file imports to `*imports`.
  Result<void> Run(std::set<std::string>* imports);

 private:
  struct Loaded {
    PropertyMap properties;
    bool read = false;
    std::vector<Event> events;
  };

  Loaded Load();
  void CheckLine(const std::string& line, StandIn* file);
  void CheckProperty(const std::string& name, const std::string& value);
  void CheckImport(const std::vector<Event>& events, const std::string& import);
  void Report(const char* id, const std::string& message) {
    context_.Report(id, path_, line_, message);
  }

  CheckContext& context_;
  const std::string path_;
  unsigned line_ = 0;
  bool bare_key_ = false;  // it holds no property, as a state file may
  std::set<std::string>* imports_ = nullptr;
};

FileCheck::Loaded FileCheck::Load() {
  Loaded loaded;
  loaded.events = context_.Observe([&] {
    loaded.read = context_.library.load_properties_from_file_without_se(path_.c_str(), nullptr,
                                                                        &loaded.properties);
  });
  return loaded;
}

Result<void> FileCheck::Run(std::set<std::string>* imports) {
  imports_ = imports;
  const Loaded whole = Load();
  if (!whole.read) {
    Report("unreadable-file", Only<LogLine>(whole.events).at(0).message);
    return {};
  }
  bare_key_ = IsStateFile(path_) && whole.properties.empty();
  Result<StandIn> file = StandIn::For(path_);
  if (!file.ok()) return file.error();
  for (const std::string& line : android::base::Split(file->Original(), "\n")) {
    ++line_;
    if (!line.empty()) CheckLine(line, &*file);
  }
  return {};
}

void FileCheck::CheckLine(const std::string& line, StandIn* file) {
  file->Show(line);
  const Loaded loaded = Load();
  const std::vector<FileEvent> files = Only<FileEvent>(loaded.events);  // the first is this file
  const std::string first_log = Only<LogLine>(loaded.events).at(0).message;
  if (files.size() > 1 || After(first_log, kImportMessages[0].text) != nullptr) {
    return CheckImport(loaded.events, files.size() > 1 ? files[1].path : "");
  }
  for (const auto& [name, value] : loaded.properties) return CheckProperty(name, value);
  if (bare_key_) return;
  // Of a comment and a blank line even this makes no named property.
  file->Show(line + "=x");
  const PropertyMap made = Load().properties;
  if (!made.empty() && !made.begin()->first.empty()) {
    Report("not-a-property", "'" + made.begin()->first + "' is no property, comment or import");
  }
}

void FileCheck::CheckProperty(const std::string& name, const std::string& value) {
  const std::string file_name = fs::path(path_).filename();
  const bool mapping = file_name == kNvToTargetMapping || file_name == kFirstKeyMapping;
  if (!mapping && !context_.library.IsLegalPropertyName(name)) {
    Report("illegal-name", "'" + name + "' is no legal property name");
  }
  Result<void> legal = context_.library.IsLegalPropertyValue(name, value);
  if (!mapping && !legal.ok()) {
    Report("illegal-value", "'" + name + "': " + legal.error().message());
  }
  std::vector<PropertyLine>& lines = context_.lines[path_];
  for (const PropertyLine& earlier : lines) {
    if (earlier.name != name) continue;
    Report("duplicate-name", "'" + name + "' is set in line " + std::to_string(earlier.line) +
                                 " already; this one counts");
    break;
  }
  lines.push_back({path_, line_, name, value, false});
}

void FileCheck::CheckImport(const std::vector<Event>& events, const std::string& import) {
  if (!import.empty()) {
    if (access(import.c_str(), F_OK) != 0)
      Report("missing-import", import + " does not exist");
    else
      imports_->insert(import);
  }
  for (const LogLine& log : Only<LogLine>(events)) {
    for (const ImportMessage& known : kImportMessages) {
      const char* subject = After(log.message, known.text);
      if (subject == nullptr) continue;
      const bool ours =
          import.empty() || known.file == ImportMessage::kAny ||
          (known.file == ImportMessage::kImported ? subject == import : SameFile(subject, path_));
      if (ours) Report(known.id, log.message);
    }
  }
}

// One name for each file, its directory's links resolved.
void AddFile(const std::string& path, std::set<std::string>* paths) {
  std::error_code error;
  const fs::path directory = fs::canonical(fs::path(path).parent_path(), error);
  if (!error && fs::symlink_status(path, error).type() != fs::file_type::directory) {
    paths->insert(directory / fs::path(path).filename());
  }
}

// The partitions' property files, and those that the boot read from elsewhere.
std::set<std::string> StartingFiles(const CheckContext& context) {
  std::set<std::string> paths;
  for (const std::string& root : *context.library.ExtensionPartitionRoots) {
    std::error_code error;
    fs::recursive_directory_iterator entry(root, fs::directory_options::skip_permission_denied,
                                           error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
      if (entry->path().extension() == ".prop") AddFile(entry->path(), &paths);
    }
  }
  for (const char* info : {kMountInfoFile, kModuleInfoFile}) AddFile(info, &paths);
  for (const LogLine& log : Only<LogLine>(context.boot)) {
    const char* loaded = After(log.message, "(Loading properties from ");
    if (loaded == nullptr) continue;
    AddFile(std::string(loaded).substr(0, std::string(loaded).rfind(" took ")), &paths);
  }
  return paths;
}

}  // namespace

Result<void> CheckPropertyFiles(CheckContext* context) {
  std::set<std::string> done;
  for (std::set<std::string> next = StartingFiles(*context); !next.empty();) {
    const std::string path = *next.begin();
    next.erase(next.begin());
    if (access(path.c_str(), F_OK) != 0 || !done.insert(path).second) continue;
    std::set<std::string> imports;
    Result<void> checked = FileCheck(context, path).Run(&imports);
    if (!checked.ok()) return checked;
    for (const std::string& import : imports) AddFile(import, &next);
  }
  return {};
}

Result<void> CheckPartitions(CheckContext* context) {
  std::map<std::string, PropertyLine> earlier;
  for (const Step& step : context->boot.steps) {
    if (step.name != "partition") break;
    for (const LogLine& log : Only<LogLine>(step.events)) {
      const char* path = After(log.message, "partition property load failed:");
      if (path != nullptr) context->Report("missing-partition", path, 0, log.message);
    }
    std::map<std::string, PropertyLine> own;
    for (const PropertyLine& line : Only<PropertyLine>(step.events)) {
      if (!line.filtered) own[line.name] = line;
    }
    for (const auto& [name, line] : own) {
      const auto [other, is_new] = earlier.try_emplace(name, line);
      if (is_new) continue;
      if (other->second.value != line.value) {
        context->Report("partition-override", line.path, line.line,
                        "'" + name + "' replaces '" + other->second.value + "' of " +
                            other->second.path + ":" + std::to_string(other->second.line));
      }
      other->second = line;
    }
  }
  return {};
}

}  // namespace extprop
