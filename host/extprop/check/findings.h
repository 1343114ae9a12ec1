#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "host/extprop/trees/device_tree.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// A kind of finding. `severity` is "error", "warning" or "note".
struct FindingKind {
  const char* id;
  const char* severity;
  const char* help;
};

// All kinds. Docs and other programs may rely on their ids.
const std::vector<FindingKind>& FindingKinds();

// What stands for a file where the properties that the device boots with are meant, and where the
// boot itself is.
constexpr const char* kPropertiesPath = "<properties>";
constexpr const char* kBootPath = "<boot>";

// A line of a file on the device. `line` counts from 1 and is 0 where the whole of the path is
// meant.
struct Place {
  std::string path;
  std::size_t line = 0;

  bool operator<(const Place& than) const {
    return std::tie(path, line) < std::tie(than.path, than.line);
  }
};

// One thing in a device's files that is wrong or worth knowing.
struct Finding {
  Place at;
  std::string id;
  std::string message;  // the same wherever in a file the lines are
  Place other;          // a second place that the message speaks of; no path where there is none

  bool operator<(const Finding& than) const {
    return std::tie(at, id, message, other) < std::tie(than.at, than.id, than.message, than.other);
  }
};

// What came up, each once.
class Findings {
 public:
  // `id` is one of FindingKinds().
  void Add(const char* id, Place at, const std::string& message, Place other = {}) {
    found_.insert({std::move(at), id, message, std::move(other)});
  }
  void Add(const Finding& finding) { found_.insert(finding); }

  std::vector<Finding> Sorted() const { return {found_.begin(), found_.end()}; }

 private:
  std::set<Finding> found_;
};

const FindingKind& KindOf(const Finding& finding);

// Returns 'text', with bytes that nobody would see made visible.
std::string Quoted(const std::string& text);

// Which findings count.
struct FindingSelection {
  std::vector<std::string> ignore;  // ids
  std::vector<std::string> only;    // ids; all where empty
  std::string baseline;             // a file that has the JSON of an earlier check; empty for none
};

// Takes those out of `*findings` that do not count and returns how many they were. A finding that
// the baseline has too, by path on the device, id and message, does not count; where one has more
// of them, as many as it has more do. The error says what is wrong with the baseline.
Result<std::size_t> Select(const FindingSelection& selection, std::vector<Finding>* findings);

// Prints a line for each, as compilers do. Paths are as the user knows them.
void PrintFindings(const DeviceTree& tree, const std::vector<Finding>& findings);

// Returns how many there are of each severity, such as "1 error, 2 warnings, 0 notes".
std::string CountFindings(const std::vector<Finding>& findings);

json FindingsJson(const DeviceTree& tree, const std::vector<Finding>& findings);

// Returns a log in the Static Analysis Results Interchange Format, version 2.1.0; its paths are
// relative to the tree's directory.
json FindingsSarif(const DeviceTree& tree, const std::vector<Finding>& findings);

}  // namespace extprop
