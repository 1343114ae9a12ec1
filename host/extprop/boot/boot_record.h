#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "extproperty/property_file_observer.h"
#include "host/extprop/vocabulary.h"

// What one boot did, in order. Every command of the tool answers from this record, and `--json`
// prints it under the names of the members; docs and other programs may rely on them.
namespace extprop {

using Properties = std::map<std::string, std::string>;

// What begins the names of the properties that a device keeps over a boot.
constexpr const char* kStoredPrefix = "persist.";

// One property of a hand-over. An empty value clears it; an empty `old` means it was absent.
struct Entry {
  std::string name;
  std::string value;
  std::string old;
  std::string refused;  // why init does not set it; empty where it does
};

// The modes of maps that no callback carries: one that the host passed in to be filled, and what
// the device has stored, which init loads after the partitions.
constexpr int kFilledMap = -1;
constexpr int kStoredProperties = -2;

struct HandOver {
  int mode = kFilledMap;
  std::vector<Entry> entries;
};

enum class Severity { kVerbose, kDebug, kInfo, kWarning, kError, kFatal };

struct LogLine {
  Severity severity = Severity::kInfo;
  std::string message;
  std::string file;  // of the library's source
  unsigned line = 0;
};

// What stands at a path. `type` is "file", "directory", "other", or empty where there is nothing.
struct FileState {
  std::string type;
  std::int64_t size = 0;
  unsigned mode = 0;  // permission bits
  uid_t uid = 0;
  gid_t gid = 0;
};

enum class FileOp { kRead, kWrite, kMkdir, kUnlink, kChown, kAccess, kList };

struct FileEvent {
  FileOp op = FileOp::kRead;
  std::string path;         // as the library named it
  std::string device_path;  // where the device's files have it; of what changes files, else empty
  int error = 0;            // errno; 0 where it succeeded
  bool existed = false;     // whether something was there before a kWrite
  std::string content;      // the first bytes of what was read; where lines are, no property file
  FileState after;          // at the end of the step, for kWrite, kMkdir and kChown
};

struct MountEvent {
  std::string source;
  std::string target;
  unsigned long flags = 0;
  int error = 0;
};

// A property that the library set itself.
struct PropertySet {
  std::string name;
  std::string value;
  std::string old;
  bool refused = false;
};

using LineOutcome = android::init::PropertyLineOutcome;

// A line of a property file, as it was read; in the order of reading. Only where the plan asks for
// lines, and none for blank lines and comments.
struct PropertyLine {
  std::size_t file = 0;  // an index into the record's property files
  unsigned line = 0;     // from 1
  LineOutcome outcome = LineOutcome::kBlank;
  std::string name;   // of a property; of an import the path
  std::string value;  // of a property; of an import the filter
  std::string text;   // as it stands in the file; empty where that is NAME=VALUE
  std::string said;   // what the library logged about an import that it refused or cannot expand
};

struct Event {
  bool thread = false;  // it happened on the bind thread
  std::variant<HandOver, LogLine, FileEvent, MountEvent, PropertySet, PropertyLine> what;
};

// One thing that the host did: called a loader, or posted a request word for the bind thread.
struct Step {
  bool post = false;
  std::string name;  // of the loader; the word of a post
  std::string argument;
  std::string error;  // why the boot ended with this step; empty where it did not
  std::vector<Event> events;
};

struct FileChange {
  std::string change;  // "added", "changed" or "removed"
  std::string path;
  FileState after;
};

constexpr std::size_t kNoImporter = ~std::size_t{0};

// One reading of a property file, in the order in which they began.
struct PropertyFile {
  std::string path;
  std::string device_path;             // where the device's files have it: see PathOrigins
  std::string filter;                  // of the import that led to it
  std::string error;                   // why it could not be read; empty where it could
  std::size_t step = 0;                // an index into the record's steps
  std::size_t importer = kNoImporter;  // an index into the same list; none for a loader's own file
  unsigned import_line = 0;            // of the importer
  std::size_t map = 0;                 // a number for the map that its properties went into
};

struct BootRecord {
  std::map<std::string, std::string> chosen;  // the files that a choice of carrier wrote, and which
  Properties initial;          // what the device boots with, stored properties included
  std::vector<Entry> refused;  // what was to be in `initial`, but init refuses
  std::vector<Step> steps;
  std::vector<PropertyFile> property_files;
  Properties properties;  // at the end
  std::vector<FileChange> files;
};

json ToJson(const BootRecord& record);

// Returns the index of the file at the head of the imports that led to `file`: a loader's own.
std::size_t OutermostFile(const BootRecord& record, std::size_t file);

// Returns the entry of that name, or null.
const Entry* FindEntry(const HandOver& hand_over, std::string_view name);

// Returns why a file could not be read, which is an errno, as a sentence without its subject.
std::string WhyUnread(int error);

// Returns what could not be read or reached, though it is there, by path with the reason. Of links
// it is known what becomes of them, so that they are told only `with_links`.
std::map<std::string, std::string> Unreadable(const BootRecord& record, bool with_links = false);

// Returns whether the line gives a property, or a mapping, to the map that is read into.
bool Sets(const PropertyLine& line);

// Returns the events of type What, in order.
template <typename What>
std::vector<const What*> Only(const std::vector<Event>& events) {
  std::vector<const What*> found;
  for (const Event& event : events) {
    if (const What* what = std::get_if<What>(&event.what)) found.push_back(what);
  }
  return found;
}

// Returns those of a whole boot.
template <typename What>
std::vector<const What*> Only(const BootRecord& boot) {
  std::vector<const What*> found;
  for (const Step& step : boot.steps) {
    for (const What* what : Only<What>(step.events)) found.push_back(what);
  }
  return found;
}

// Returns such as "persist", "simswitch=simSwitchFirst" or "post boot_mount".
std::string TitleOf(const Step& step);

// Returns why the boot ended early, as "STEP: ERROR"; empty where it did not.
std::string ErrorOf(const BootRecord& record);

}  // namespace extprop
