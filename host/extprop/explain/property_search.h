#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"

namespace extprop {

// A line of a property file that sets something.
struct FoundLine {
  std::string name;
  std::string value;
  std::string file;  // without links
  unsigned line = 0;
  std::string root;    // the partition or COTA image that the file lies in; empty for a state file
  bool image = false;  // the root is a COTA image or module that waits to be bound
};

struct FoundLines {
  std::vector<FoundLine> lines;
  bool whole = true;  // false where there were too many files to look into all
};

// Returns the lines that set a property of that name, or that glob, on the device of `plan`,
// whether a boot reads them or not: in the *.prop files below the partitions and below the COTA
// images and modules that info files and properties name, and, for a name that is no glob, in the
// info and state files. The library parses each file by itself, without its imports. Mapping files
// have no properties. Fails where the private root is refused or the library has no parser.
android::base::Result<FoundLines> FindPropertyLines(const BootPlan& plan, const std::string& name);

// The state files that the library reads for their properties, and the one-shot info files.
extern const std::vector<std::string> kStateFiles;
extern const std::vector<std::string> kInfoFiles;

}  // namespace extprop
