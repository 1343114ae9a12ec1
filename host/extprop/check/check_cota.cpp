#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/extprop/check/check_context.h"
#include "host/extprop/check/stand_in.h"

namespace extprop {

namespace {

using android::base::Result;

constexpr const char* kBindImage = "mount_and_check_load";
constexpr const char* kMakeDirectories = "bind_basic_point";
constexpr const char* kBindModule = "module_bind_single";

bool IsInfoFile(const std::string& path) {
  return path == kMountInfoFile || path == kModuleInfoFile;
}

// One of the info files, which stays through the commands that would consume it.
class InfoFile {
 public:
  InfoFile(CheckContext* context, const char* path, StandIn file)
      : context_(*context), path_(path), file_(std::move(file)) {
    lines_ = android::base::Split(file_.Original(), "\n");
  }

  // What the device does for a service command; mounts are undone.
  std::vector<Event> Serve(const char* command) {
    std::vector<Event> events = context_.Call("service", command, context_.boot.properties);
    for (const MountEvent& mount : Only<MountEvent>(events)) {
      if (mount.error == 0) umount2(mount.target.c_str(), MNT_DETACH);
    }
    return events;
  }

  // Reports the lines that make no difference to a command.
  void CheckUnread(const char* command);
  void CheckDirectories();
  // Returns false, having reported it, where a mount fails.
  bool CheckBinds(const std::vector<Event>& events);

 private:
  std::string Effect(const char* command, size_t index, const std::string& line);
  size_t LineOf(const std::string& value);

  CheckContext& context_;
  const char* const path_;
  StandIn file_;
  std::vector<std::string> lines_;
};

// What a command does with `line` in place of the line `index`, as a text that can be compared.
std::string InfoFile::Effect(const char* command, size_t index, const std::string& line) {
  std::vector<std::string> lines = lines_;
  lines[index] = line;
  file_.Show(android::base::Join(lines, '\n'));
  Step step;
  for (const Event& event : Serve(command)) {
    const auto* log = std::get_if<LogLine>(&event.what);
    if (log == nullptr || log->severity > Severity::kVerbose) step.events.push_back(event);
  }
  file_.Show(file_.Original());
  BootRecord record;
  record.steps = {step};
  return JsonText(ToJson(record));
}

size_t InfoFile::LineOf(const std::string& value) {
  for (const PropertyLine& line : context_.lines[path_]) {
    if (line.value == value) return line.line;
  }
  return 0;
}

void InfoFile::CheckUnread(const char* command) {
  const std::string as_it_is = Effect(command, 0, lines_[0]);
  for (const PropertyLine& line : context_.lines[path_]) {
    // Another value tells where the default is the same, no value where any other is as good.
    const size_t index = line.line - 1;
    if (Effect(command, index, "") != as_it_is ||
        Effect(command, index, lines_[index] + "x") != as_it_is) {
      continue;
    }
    context_.Report("unread-key", path_, line.line,
                    "'" + line.name + "' changes nothing for " + command);
  }
}

void InfoFile::CheckDirectories() {
  for (const LogLine& log : Only<LogLine>(Serve(kMakeDirectories))) {
    if (const char* directory = After(log.message, "cota module wrong dir ")) {
      context_.Report("module-directory", path_, LineOf(directory), log.message);
    }
  }
}

bool InfoFile::CheckBinds(const std::vector<Event>& events) {
  bool all_done = true;
  for (const MountEvent& mount : Only<MountEvent>(events)) {
    if (mount.error == 0) continue;
    all_done = false;
    context_.Report(
        "failed-bind", path_, LineOf(mount.target),
        "cannot bind " + mount.source + " on " + mount.target + ": " + strerror(mount.error));
  }
  return all_done;
}

bool ReadsAnImage(const std::vector<Event>& events) {
  const std::vector<FileEvent> files = Only<FileEvent>(events);
  return std::any_of(files.begin(), files.end(), [](const FileEvent& file) {
    return file.op == FileOp::kRead && !IsInfoFile(file.path);
  });
}

}  // namespace

Result<void> CheckCotaInfoFiles(CheckContext* context) {
  std::optional<InfoFile> mount_info, module_info;
  for (auto [path, file] :
       {std::pair(kMountInfoFile, &mount_info), std::pair(kModuleInfoFile, &module_info)}) {
    if (access(path, F_OK) != 0) continue;
    Result<StandIn> stand_in = StandIn::For(path);
    if (!stand_in.ok()) return stand_in.error();
    file->emplace(context, path, std::move(*stand_in));
  }
  if (module_info && module_info->CheckBinds(module_info->Serve(kBindModule))) {
    module_info->CheckUnread(kBindModule);
  }
  if (!mount_info) return {};
  // The file is either an image's or that of the modules' directories.
  if (ReadsAnImage(mount_info->Serve(kBindImage))) {
    mount_info->CheckUnread(kBindImage);
  } else {
    mount_info->CheckDirectories();
  }
  return {};
}

}  // namespace extprop
