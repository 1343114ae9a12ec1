#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include <android-base/strings.h>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/boot/library_functions.h"
#include "host/extprop/boot/path_origins.h"
#include "host/extprop/check/check.h"

// What the checks share. They run in a private root of their own, in which all files are as they
// were given.
namespace extprop {

constexpr const char* kFirstTime = "SimSwitchFirstTime";
constexpr const char* kCurrentTime = "SimSwitchCurrentTime";
constexpr const char* kChannel = "switchCarrierChannel";

constexpr const char* kNvMapping = "flags.prop";
constexpr const char* kFirstMapping = "nvmap.prop";

constexpr const char* kMountInfoFile = "/data/cota/cota_mount_info.prop";
constexpr const char* kModuleInfoFile = "/data/cota/cota_module_info.prop";

// A line that was read, and what the library logged about it where it refused an import.
struct ReadingLine {
  const PropertyLine* line;
  std::string said;
};

// One reading of a property file.
struct Reading {
  std::string path;  // of the file in the device's files
  std::string filter;
  std::string error;          // why it could not be read; empty where it could
  std::size_t outermost = 0;  // the reading that no import led to, in the same list
  Place import;               // the line that led to it; no path in the outermost
  const Step* step = nullptr;
  std::vector<ReadingLine> lines;
};

// What is known of the context that a file's imports are followed in.
enum class Imports {
  kOfBoot,     // all: a boot followed them
  kOutermost,  // no import leads to the file, but the properties may be others when it is read
  kUnknown,    // nothing: it is read only where something imports it
};

class CheckContext {
 public:
  // All arguments outlive it.
  CheckContext(const BootPlan& the_plan, const LibraryFunctions& functions);

  const BootPlan& plan;
  const LibraryFunctions& library;
  std::set<Finding> findings;
  // The directories that have properties as a partition has them: the partitions, then the images
  // and modules that the boots loaded.
  std::vector<std::string> roots;

  // `id` is one of FindingKinds().
  void Report(const char* id, Place at, const std::string& message, Place other = {});

  // Returns the one path of the file at `path`: links in its directory are followed.
  std::string PathOf(const std::string& path) { return origins_.Find(path); }

  // Adds the directories whose build.prop was loaded.
  void AddRoots(const std::vector<Reading>& readings);
  void AddRoot(const std::string& directory);

  // Where carriers have files and directories, relative to whichever root has them.
  std::set<std::string> carrier_paths;

 private:
  PathOrigins origins_;
};

// Returns what a record says of each of its property files, in the same order. Lines of files that
// the boot itself had written are left out.
std::vector<Reading> ReadingsOf(const BootRecord& record);

// The checks, one file a group of findings. `readings` are those of the record.
void CheckReading(const Reading& reading, Imports imports, CheckContext* context);
void CheckOverrides(const BootRecord& boot, const std::vector<Reading>& readings,
                    CheckContext* context);
void CheckStateFiles(const std::vector<Reading>& readings, CheckContext* context);
void CheckCota(const BootRecord& boot, const std::vector<Reading>& readings, CheckContext* context);

// The events of type What, in order.
template <typename What>
std::vector<const What*> Only(const std::vector<Event>& events) {
  std::vector<const What*> found;
  for (const Event& event : events) {
    if (const What* what = std::get_if<What>(&event.what)) found.push_back(what);
  }
  return found;
}

// Those of a whole boot.
template <typename What>
std::vector<const What*> Only(const BootRecord& boot) {
  std::vector<const What*> found;
  for (const Step& step : boot.steps) {
    for (const What* what : Only<What>(step.events)) found.push_back(what);
  }
  return found;
}

// Whether the line gives a property, or a mapping, to the map that is read into.
inline bool Sets(const PropertyLine& line) {
  return line.outcome == LineOutcome::kSet || line.outcome == LineOutcome::kReplaced ||
         line.outcome == LineOutcome::kSameAgain;
}

// Returns what follows `prefix` in `text`, null where it begins otherwise.
inline const char* After(const std::string& text, const std::string& prefix) {
  return android::base::StartsWith(text, prefix) ? text.c_str() + prefix.size() : nullptr;
}

// 'text', with bytes that nobody would see made visible.
std::string Quoted(const std::string& text);

}  // namespace extprop
