#include <unistd.h>

#include <cstring>

#include "host/extprop/check/check_context.h"

namespace extprop {

namespace {

class CotaCheck {
 public:
  CotaCheck(const BootRecord& boot, const std::vector<Reading>& readings, CheckContext* context)
      : boot_(boot), readings_(readings), context_(*context) {}

  void Run() {
    for (const MountEvent* mount : Only<MountEvent>(boot_)) {
      if (mount->error != 0) ReportBind(*mount);
    }
    for (const LogLine* log : Only<LogLine>(boot_)) CheckDirectory(log->message);
    for (const Reading& reading : readings_) CheckModule(reading);
  }

 private:
  void ReportBind(const MountEvent& mount);
  void CheckDirectory(const std::string& message);
  void CheckModule(const Reading& reading);
  Place PlaceOf(const std::string& value) const;

  const BootRecord& boot_;
  const std::vector<Reading>& readings_;
  CheckContext& context_;
};

// The line of an info file that has the value; the boot where none has.
Place CotaCheck::PlaceOf(const std::string& value) const {
  for (const Reading& reading : readings_) {
    if (reading.path != kMountInfoFile && reading.path != kModuleInfoFile) continue;
    for (const ReadingLine& read : reading.lines) {
      if (Sets(*read.line) && read.line->value == value) return {reading.path, read.line->line};
    }
  }
  return {kBootPath};
}

void CotaCheck::ReportBind(const MountEvent& mount) {
  const std::string what = "cannot bind " + mount.source + " on " + mount.target + ": ";
  bool any_missing = false;
  for (const std::string& directory : {mount.source, mount.target}) {
    if (access(directory.c_str(), F_OK) == 0) continue;
    any_missing = true;
    Place at = PlaceOf(directory);
    // The default target stands in no file.
    if (at.path == kBootPath) at = PlaceOf(mount.source);
    context_.Report("failed-bind", at, std::string(what).append("there is no ").append(directory));
  }
  if (!any_missing) {
    context_.Report("failed-bind", PlaceOf(mount.source), what + strerror(mount.error));
  }
}

void CotaCheck::CheckDirectory(const std::string& message) {
  if (const char* wrong = After(message, "cota module wrong dir ")) {
    context_.Report("module-directory", PlaceOf(wrong),
                    std::string(wrong) + " lies where no module directory may be");
  }
  const char* failed = After(message, "cota creat dir ");
  if (failed == nullptr || !android::base::EndsWith(message, " failed")) return;
  const std::string directory(failed, strlen(failed) - strlen(" failed"));
  context_.Report("module-directory", PlaceOf(directory), directory + " cannot be made");
}

void CotaCheck::CheckModule(const Reading& reading) {
  if (reading.path != kModuleInfoFile || !reading.error.empty()) return;
  if (!Only<MountEvent>(reading.step->events).empty()) return;
  context_.Report(
      "failed-bind", {reading.path},
      "it names no module to bind, which takes mount_point, module_type and bind_point");
}

}  // namespace

void CheckCota(const BootRecord& boot, const std::vector<Reading>& readings,
               CheckContext* context) {
  CotaCheck(boot, readings, context).Run();
}

}  // namespace extprop
