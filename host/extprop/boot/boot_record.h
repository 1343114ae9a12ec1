#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

#include <nlohmann/json_fwd.hpp>

// What one boot did, in order. Every command of the tool answers from this record, and `--json`
// prints it; docs and other programs may rely on the names, which are those of the members.
namespace extprop {

using Properties = std::map<std::string, std::string>;

// One property of a hand-over. An empty value clears it; an empty `old` means it was absent.
struct Entry {
  std::string name;
  std::string value;
  std::string old;
};

// The mode of a map that the host passed in to be filled, instead of a hand-over by callback.
constexpr int kFilledMap = -1;

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
  std::string path;
  int error = 0;         // errno; 0 where it succeeded
  bool existed = false;  // whether something was there before a kWrite
  FileState after;       // at the end of the step, for kWrite, kMkdir and kChown
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

// A line that sets a property, in a file that was read; in the order in which the lines took
// effect, before the hand-over that could hold it. Only where the plan asks for attribution.
struct PropertyLine {
  std::string path;
  unsigned line = 0;  // from 1; 0 where the value is the file's whole content
  std::string name;
  std::string value;
  bool filtered = false;  // the filter of the import keeps it out
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

struct BootRecord {
  Properties initial;
  std::vector<Step> steps;
  Properties properties;  // at the end
  std::vector<FileChange> files;
};

nlohmann::json ToJson(const BootRecord& record);

// Throws nlohmann::json::exception where `json` is not what ToJson returns.
BootRecord FromJson(const nlohmann::json& json);

// Returns `json` as indented text; bytes that are not UTF-8 become U+FFFD.
std::string JsonText(const nlohmann::json& json);

}  // namespace extprop
