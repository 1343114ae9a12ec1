#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/extprop/boot/boot.h"
#include "host/extprop/check/findings.h"
#include "host/extprop/survey/survey.h"

// The checks, a file for each group of findings. Each adds what it finds to `*findings`; `readings`
// are those of the record.
namespace extprop {

// Boots the plan's tree with what the COTA service does with the info files, reads the property
// files that this boot had no reason to read, and returns what came up, in the order of path and
// line. Overrides between partitions are many and meant, so they are told only if asked for. Fails
// as RunBoot does, and where the library does not show its own checks.
Result<std::vector<Finding>> CheckTree(const BootPlan& plan, bool overrides);

// One reading of a property file, with the lines but of a file that the boot itself had written.
struct Reading {
  const PropertyFile* file = nullptr;
  std::size_t outermost = 0;  // the reading that no import led to, in the same list
  Place import;               // the line that led to it; no path in the outermost
  FileContent content = FileContent::kProperties;  // what its lines are, as the outermost's
  std::vector<const PropertyLine*> lines;

  const std::string& Path() const { return file->device_path; }
};

// Returns what a record says of each of its property files, in the same order. Good as long as the
// record.
std::vector<Reading> ReadingsOf(const BootRecord& record);

// What is known of the context that a file's imports are followed in.
enum class Imports {
  kOfBoot,     // all: a boot followed them
  kOutermost,  // no import leads to the file, but the properties may be others when it is read
  kUnknown,    // nothing: it is read only where something imports it
};

void CheckReading(const Reading& reading, Imports imports, const Library& library,
                  Findings* findings);
// Checks for names that a file sets twice and, if `overrides`, that a later partition sets again.
void CheckSetAgain(const BootRecord& record, bool overrides, Findings* findings);
// Checks what the COTA service's commands made of the info files.
void CheckCota(const BootRecord& boot, Findings* findings);

// What a survey tells about the files of all carriers.
struct CarrierFiles {
  // A line of a partition's mapping file of that name.
  struct Mapping {
    std::string file;
    Place at;
    std::string key;
    std::string target;
  };
  std::map<std::string, std::vector<std::string>> keyed_files;  // R/etc/build.KEY.prop, by KEY
  std::set<std::string> keyed_directories;                      // the KEYs of R/properties/KEY
  std::vector<Mapping> mappings;
  std::map<std::string, MappedKey> nv_keys, first_keys;  // what the library makes of the mappings
  std::string no_partition;  // the subject of what is said of something missing
};

// Returns true for what was read of a state file that has a bare key, as the old format has it, in
// place of a property.
bool IsBareKey(const Reading& reading);

// Checks the state files that the boot read and the carriers that they name.
void CheckStateFiles(const BootRecord& boot, const std::vector<Reading>& readings,
                     const CarrierFiles& carriers, Findings* findings);
// Checks the mapping files and what they lead to.
void CheckMappings(const CarrierFiles& carriers, Findings* findings);
// Checks the keys that the boot took from legacy sources and properties.
void CheckLegacyKeys(const BootRecord& boot, const CarrierFiles& carriers, Findings* findings);
// Checks the files that are named by a key, but for those in `read`.
void CheckReach(const CarrierFiles& carriers, const std::set<std::string>& read,
                Findings* findings);
// Checks for files of one directory that, each with its imports, end with different values.
void CheckDirectoryOrder(const Survey& survey, Findings* findings);

}  // namespace extprop
