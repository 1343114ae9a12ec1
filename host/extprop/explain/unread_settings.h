#pragma once

#include <string>
#include <vector>

#include "host/extprop/boot/boot.h"
#include "host/extprop/explain/setting.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// A line that sets a property in a file of the device, whether or not a boot reads it.
struct FoundLine {
  std::string path;
  unsigned line = 0;
  std::string name;
  std::string value;
  std::string root;  // the partition or COTA image that the file lies in; empty for a state file
  // Of a COTA image or module: "loaded" where the properties name it, "bound" where an info file
  // does, by what has to happen before it is read; else empty.
  std::string awaits = {};
};

// Returns whether the property's name is `pattern` or matches it as a glob.
bool Matches(const std::string& pattern, const std::string& name);

// Starts a search for the lines that set a property whose name matches `pattern`: in the files
// below the partitions, images and modules and, for a name that is no glob, in the info and state
// files. Mapping files have no properties.
Result<StartedBoot> StartSearch(const BootPlan& plan, const std::string& pattern);

// Returns what the search found. To be called once.
Result<std::vector<FoundLine>> FinishSearch(StartedBoot* search);

// Returns what the search finds that the boot of `record` did not read, or handed nothing of over,
// with the reason in `why`.
Result<std::vector<Setting>> UnreadSettings(StartedBoot* search, const BootRecord& record);

}  // namespace extprop
