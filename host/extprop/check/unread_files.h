#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/extprop/check/check_context.h"

namespace extprop {

// What may be read for some carrier: below R, a root,
enum class FileKind {
  kKeyedFile,     // R/etc/build.KEY.prop
  kKeyedInOrder,  // R/properties/KEY/KIND/*.prop, which are read in the directory's order
  kMapping,       // R/etc/flags.prop and nvmap.prop
  kOther,         // any other *.prop file, which something may import
};

// Finds them all by their paths, and reports directories that no key can reach or that cannot be
// read.
std::map<std::string, FileKind> FindKeyedFiles(CheckContext* context);

// What the library itself makes of them, each read by itself, and of the sources of legacy keys.
struct Survey {
  BootRecord record;
  std::vector<Reading> readings;
  std::map<std::string, FileKind> kinds;
  std::string nv_key, nv_source;  // the source is the path that it was read from
  std::string ssv_key, ssv_source;
  std::string nv_target;
};

// Checks the mapping files and what they lead to.
void CheckMappings(const Survey& survey, CheckContext* context);
// Checks the keys that this device has from legacy sources and the properties.
void CheckLegacyKeys(const Survey& survey, const BootRecord& boot, CheckContext* context);
// Checks the files that are named by a key; `done` is what the boots read.
void CheckReach(const Survey& survey, const std::vector<Reading>& done, CheckContext* context);

}  // namespace extprop
