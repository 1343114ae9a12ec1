#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/device_layout.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// What a property file is for the library. R is a root.
enum class FileKind {
  kBuildFile,     // R/build.prop
  kKeyedFile,     // R/etc/build.KEY.prop
  kKeyedInOrder,  // R/properties/KEY/KIND/*.prop, which are read in the directory's order
  kMapping,       // R/etc/flags.prop and nvmap.prop
  kOther,         // any other *.prop file below R, which something may import
  kState,         // a state file or a one-shot info file
};

// A directory that has properties as a partition has them.
struct SurveyedRoot {
  enum class Kind {
    kPartition,
    kPlace,    // /my_company or /my_carrier, where it is a directory of its own
    kImage,    // the COTA image that the properties name
    kWaiting,  // a COTA image or module that info files name, which is to be bound yet
  };
  std::string path;
  Kind kind = Kind::kPartition;
};

struct SurveyedFile {
  FileKind kind = FileKind::kOther;
  std::size_t root = 0;  // an index into the roots; of no meaning for a state file
  std::string way = {};  // how the library names it: by names of which some may be links
  KeyedPath keyed = {};  // of that
};

// R/properties/KEY, and each directory in it.
struct SurveyedDirectory {
  std::string path;
  std::string key;
  std::string kind;  // the last name of the path; empty for R/properties/KEY itself
  std::size_t root = 0;
};

// All property files of a device, whether or not a boot reads them. Paths are those of the device,
// without links in their directories.
struct Survey {
  std::vector<SurveyedRoot> roots;            // partitions come first, in the order of loading
  std::map<std::string, SurveyedFile> files;  // by path
  std::vector<SurveyedDirectory> directories;
  std::map<std::string, std::string> unreadable;  // what was not looked into, and why
  // What the library makes of them: its property files are the surveyed ones, each read by itself
  // in the order of roots and paths, and what they import. Without the partitions' build.prop where
  // the plan's boot loads all partitions, and so tells more of them.
  const BootRecord* record = nullptr;
};

// What the mapping files of one name make of a key.
struct MappedKey {
  std::string target;  // by the file that the library takes it from
  std::vector<std::string> files;
};

// A line that sets something in a partition's mapping file of that name, or in what it imports.
struct MappingLine {
  std::string file;
  std::size_t root = 0;
  const PropertyLine* line = nullptr;  // of the survey's record
};
std::vector<MappingLine> MappingLinesOf(const Survey& survey);

// Returns what the partitions' mapping files of that name, such as "flags.prop", make of each key
// that any of them has.
std::map<std::string, MappedKey> MappingsOf(const Survey& survey, const std::string& file_name);

// What is asked of a survey: is called where it is, as a Digest of a boot.
using SurveyDigest = std::function<json(const Survey& survey)>;

// Finds and reads the property files that the plan's device has before any boot, in a process of
// its own. Fails as StartedBoot does; it is an error if the library does not offer its parser.
Result<StartedBoot> StartSurvey(const BootPlan& plan, const SurveyDigest& digest);

}  // namespace extprop
