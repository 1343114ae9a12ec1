#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <android-base/result.h>
#include <android-base/strings.h>

#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/library_functions.h"
#include "host/extprop/boot/recorder.h"
#include "host/extprop/check/check.h"

// What the checks share. They run in the private root, each on the files as they are given.
namespace extprop {

constexpr const char* kNvToTargetMapping = "flags.prop";
constexpr const char* kFirstKeyMapping = "nvmap.prop";
constexpr const char* kMountInfoFile = "/data/cota/cota_mount_info.prop";
constexpr const char* kModuleInfoFile = "/data/cota/cota_module_info.prop";

class CheckContext {
 public:
  // All arguments outlive it.
  CheckContext(const BootPlan& plan, const BootRecord& boot, Factory factory,
               const LibraryFunctions& functions);

  const BootPlan& plan;
  const BootRecord& boot;  // one "partition" step for each root, then the plan's steps
  const LibraryFunctions& library;
  std::set<Finding> findings;
  // What CheckPropertyFiles, the first check, found in each file.
  std::map<std::string, std::vector<PropertyLine>> lines;

  // `id` is one of FindingKinds().
  void Report(const char* id, const std::string& path, size_t line, const std::string& message);

  // Does `work` and returns what the library did meanwhile.
  template <typename Work>
  std::vector<Event> Observe(Work work) {
    recorder_->BeginStep({});
    work();
    return recorder_->TakeStep().events;
  }

  // Calls a loader on a device that has the plan's properties and `set`.
  std::vector<Event> Call(const char* loader, const std::string& argument, const Properties& set);

 private:
  android::init::IInitExtensionProperty* const service_;
  Recorder* const recorder_;
};

using Check = android::base::Result<void> (*)(CheckContext* context);
android::base::Result<void> CheckPropertyFiles(CheckContext* context);
android::base::Result<void> CheckPartitions(CheckContext* context);
android::base::Result<void> CheckMappedKeys(CheckContext* context);
android::base::Result<void> CheckCarrierDirectories(CheckContext* context);
android::base::Result<void> CheckStateFiles(CheckContext* context);
android::base::Result<void> CheckCotaInfoFiles(CheckContext* context);

// The events of type What, in order.
template <typename What>
std::vector<What> Only(const std::vector<Event>& events) {
  std::vector<What> found;
  for (const Event& event : events) {
    if (const What* what = std::get_if<What>(&event.what)) found.push_back(*what);
  }
  return found;
}

// Those of a whole boot.
template <typename What>
std::vector<What> Only(const BootRecord& boot) {
  std::vector<What> found;
  for (const Step& step : boot.steps) {
    for (What& what : Only<What>(step.events)) found.push_back(std::move(what));
  }
  return found;
}

// Returns what follows `prefix` in `text`, null where it begins otherwise.
inline const char* After(const std::string& text, const char* prefix) {
  return android::base::StartsWith(text, prefix) ? text.c_str() + std::string(prefix).size()
                                                 : nullptr;
}

inline bool IsStateFile(const std::string& path) {
  return After(path, "/mnt/vendor/vemrareserve/system/") || After(path, "/data/system/customize/");
}

}  // namespace extprop
