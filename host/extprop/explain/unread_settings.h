#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/extprop/boot/boot.h"
#include "host/extprop/explain/history.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// A line that sets a property in a file of the device, whether or not a boot reads it.
struct FoundLine {
  std::string path;
  unsigned line = 0;
  std::string name;
  std::string value;
  std::string root;  // the partition or COTA image that the file lies in; empty for any other place
  // What has to happen before the file is read: "loaded" of a COTA image that the properties name,
  // "bound" of one or a module that an info file does, "quasar" for that loader; else empty.
  std::string awaits = {};
  std::string kind =
      {};  // of the carrier key that the file is read for, as of a KeyedPath; and the key
  std::string key = {};
  std::string importer = {};  // FILE:LINE of the import by which alone the file was found
};

struct SearchResult {
  std::vector<FoundLine> lines;
  std::map<std::string, std::string> unreadable;  // what could not be looked into, and why
};

// Returns whether the property's name is `pattern` or matches it as a glob.
bool Matches(const std::string& pattern, const std::string& name);

// Starts a search for the lines that set a property whose name matches `pattern`: in the files
// below the partitions, images and modules, in what they import, and in the info and state files.
// Mapping files have no properties.
Result<StartedBoot> StartSearch(const BootPlan& plan, const std::string& pattern);

// Returns what the search found. To be called once.
Result<SearchResult> FinishSearch(StartedBoot* search);

// Returns those of the lines that the boot of `record` did not read, or handed nothing of over,
// with the reason in `why`.
std::vector<Setting> UnreadSettings(const std::vector<FoundLine>& lines, const BootRecord& record);

}  // namespace extprop
