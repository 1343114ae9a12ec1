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

class CotaCheck {
 public:
  CotaCheck(const std::vector<Reading>& readings, Findings* findings)
      : readings_(readings), findings_(*findings) {}

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
    findings_.Add("module-directory", PlaceOf(directory), directory + what);
  }

  void CheckModule(const Reading& reading, const Step& step) {
    if (reading.Path() != kModuleInfoFile || !reading.file->error.empty()) return;
    if (!Only<MountEvent>(step.events).empty()) return;
    findings_.Add(
        "failed-bind", {reading.Path()},
        "it names no module to bind, which takes mount_point, module_type and bind_point");
  }

 private:
  // The line of an info file that has the value; the boot where none has.
  Place PlaceOf(const std::string& value) const {
    for (const Reading& reading : readings_) {
      if (ContentOf(reading.Path()) != FileContent::kInfo) continue;
      for (const PropertyLine* line : reading.lines) {
        if (Sets(*line) && line->value == value) return {reading.Path(), line->line};
      }
    }
    return {kBootPath};
  }

  const std::vector<Reading>& readings_;
  Findings& findings_;
};

}  // namespace

void CheckCota(const BootRecord& boot, const std::vector<Reading>& readings, Findings* findings) {
  CotaCheck check(readings, findings);
  for (const MountEvent* mount : Only<MountEvent>(boot)) check.CheckBind(*mount);
  for (const LogLine* log : Only<LogLine>(boot)) check.CheckDirectory(log->message);
  for (const Reading& reading : readings)
    check.CheckModule(reading, boot.steps[reading.file->step]);
}

}  // namespace extprop
