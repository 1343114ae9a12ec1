#include <unistd.h>

#include <cstring>
#include <string_view>

#include <android-base/strings.h>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/check/checks.h"

namespace extprop {

namespace {

using android::base::ConsumePrefix;
using android::base::ConsumeSuffix;

bool Exists(const std::string& path) {
  return access(path.c_str(), F_OK) == 0;
}

struct InfoLine {
  Place at;
  const PropertyLine* line;
};

// Looks at what one step made of the info files that it read.
class CotaCheck {
 public:
  CotaCheck(const BootRecord& boot, const Step& step, Findings* findings)
      : step_(step), findings_(*findings) {
    for (const PropertyLine* line : Only<PropertyLine>(step.events)) {
      const PropertyFile& file = boot.property_files[OutermostFile(boot, line->file)];
      if (!Sets(*line) || !Has(kInfoFiles, file.path)) continue;
      lines_[file.path].push_back(
          {{boot.property_files[line->file].device_path, line->line}, line});
    }
  }

  void Run() {
    const std::vector<const MountEvent*> mounts = Only<MountEvent>(step_.events);
    for (const MountEvent* mount : mounts) CheckBind(*mount);
    for (const LogLine* log : Only<LogLine>(step_.events)) CheckDirectory(log->message);
    if (step_.argument == "mount_and_check_load") CheckImage();
    for (const FileEvent* file : Only<FileEvent>(step_.events)) {
      const bool is_read = file->op == FileOp::kRead && file->error == 0;
      if (!is_read || file->path != kModuleInfoFile || !mounts.empty()) continue;
      findings_.Add(
          "failed-bind", {file->path},
          "it names no module to bind, which takes mount_point, module_type and bind_point");
    }
  }

 private:
  void CheckBind(const MountEvent& mount) {
    if (mount.error == 0) return;
    const std::string what = "cannot bind " + mount.source + " on " + mount.target + ": ";
    if (Exists(mount.source) && Exists(mount.target)) {
      findings_.Add("failed-bind", PlaceOf(mount.source), what + strerror(mount.error));
    }
    for (const std::string& directory : {mount.source, mount.target}) {
      if (Exists(directory)) continue;
      Place at = PlaceOf(directory);
      // The default target stands in no file.
      if (at.path == kBootPath) at = PlaceOf(mount.source);
      std::string message = what;
      findings_.Add("failed-bind", at, message.append("there is no ").append(directory));
    }
  }

  void CheckDirectory(std::string_view message) {
    const bool wrong = ConsumePrefix(&message, "cota module wrong dir ");
    const bool failed =
        ConsumePrefix(&message, "cota creat dir ") && ConsumeSuffix(&message, " failed");
    if (!wrong && !failed) return;
    const std::string directory(message);
    const char* what = wrong ? " lies where no module directory may be" : " cannot be made";
    for (const auto& [at, line] : lines_[kMountInfoFile]) {
      if (line->value != directory || IsForwarded(line->name)) continue;
      findings_.Add("module-directory", at, Quoted(directory) + what);
    }
  }

  // An image that is named but not to be bound.
  void CheckImage() {
    const InfoLine* image = nullptr;
    bool verified = false;
    for (const InfoLine& each : lines_[kMountInfoFile]) {
      if (each.line->name == kImageRoot) image = &each;
      if (each.line->name == kImageVerified) verified = each.line->value == "1";
    }
    if (image == nullptr || (verified && image->line->value[0] == '/')) return;
    findings_.Add("failed-bind", image->at,
                  "the image is not bound, as " +
                      (verified ? "its path is not absolute"
                                : std::string(kImageVerified) + " is not 1 in this file"));
  }

  // The line of an info file that has the value, of the module's first; the boot where none has.
  Place PlaceOf(const std::string& value) const {
    for (const char* path : {kModuleInfoFile, kMountInfoFile}) {
      for (const auto& [at, line] : ValueIn(lines_, path)) {
        if (line->value == value) return at;
      }
    }
    return {kBootPath};
  }

  const Step& step_;
  Findings& findings_;
  std::map<std::string, std::vector<InfoLine>> lines_;  // by file, as the library names it
};

}  // namespace

void CheckCota(const BootRecord& boot, Findings* findings) {
  for (const Step& step : boot.steps) CotaCheck(boot, step, findings).Run();
}

}  // namespace extprop
