#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/library_functions.h"
#include "host/extprop/trees/device_paths.h"

namespace extprop {

// A property file of a device, whether or not a boot reads it.
struct DeviceFile {
  std::string path;    // on the device, without links
  std::string source;  // on the workstation
  std::string root;    // the partition or COTA image that it lies in; empty for a state file
  bool image = false;  // the root is a COTA image or module that waits to be bound
};

// A line that sets a property.
struct FoundLine {
  DeviceFile file;
  unsigned line = 0;
  std::string name;
  std::string value;
};

struct FoundLines {
  std::vector<FoundLine> lines;
  bool whole = true;  // false where there were too many files to look into all
};

// Finds the lines that set a property of a name, or glob, on a device: in the *.prop files below
// the partitions and below the COTA images and modules that info files and properties name, and,
// for a name that is no glob, in the info and state files. Mapping files have no properties.
class PropertySearch {
 public:
  // Finds out where to look. The library of `plan` must have its parser, and nothing else in this
  // process may read property files.
  static android::base::Result<PropertySearch> Begin(const BootPlan& plan, const std::string& name);

  // Looks for the files that hold the name, and lets the library parse them, except those whose
  // paths are in `known`, each by itself, without its imports.
  FoundLines Finish(const std::set<std::string>& known);

 private:
  struct Files {
    std::vector<DeviceFile> files;
    bool whole = true;
  };
  class Walk;

  PropertySearch(const LibraryFunctions& library, const std::string& name)
      : library_(library), name_(name) {}
  std::vector<std::string> ImageRoots(const DevicePaths& paths, const Properties& properties) const;
  std::vector<FoundLine> Parse(const DeviceFile& file) const;

  LibraryFunctions library_;
  std::string name_;
  std::function<Files()> search_;
};

// The state files that the library reads for their properties, and the one-shot info files.
extern const std::vector<std::string> kStateFiles;
extern const std::vector<std::string> kInfoFiles;

}  // namespace extprop
