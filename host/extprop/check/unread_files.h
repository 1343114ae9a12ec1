#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "host/extprop/boot/recorder.h"
#include "host/extprop/check/check_context.h"

namespace extprop {

// What may be read for some carrier: below R, a root,
enum class FileKind {
  kKeyedFile,     // R/etc/build.KEY.prop
  kKeyedInOrder,  // R/properties/KEY/KIND/*.prop, which are read in the directory's order
  kMapping,       // R/etc/flags.prop and nvmap.prop
  kOther,         // any other *.prop file, which something may import
};

// Finds them all below `roots` by their paths, which have no links in their directories, and
// reports directories that no key can reach or that cannot be read.
std::map<std::string, FileKind> FindKeyedFiles(const std::vector<std::string>& roots,
                                               CheckContext* context);

// What the library itself makes of them, each read by itself, and of the sources of legacy keys.
struct Survey {
  std::map<std::string, FileKind> kinds;
  std::vector<Reading> readings;
  std::string nv_key, nv_source;  // the source is the path that it was read from
  std::string nv_target;
  std::string ssv_key, ssv_source;
};

// Reads the property and mapping files that some boot may read, and checks what they hold and where
// they lead. One per process.
class UnreadFiles {
 public:
  // Reads what is below the roots that `context` has so far.
  explicit UnreadFiles(CheckContext* context);

  // Finds and reads what is below the roots that `context` has got since.
  void ReadFurther();
  // Reads the rest and checks all but what the boots read, as `done` tells.
  void Check(const BootRecord& boot, const std::vector<Reading>& done);

 private:
  void Read(const std::string& path);

  CheckContext& context_;
  Recorder* const recorder_;
  std::ptrdiff_t roots_done_ = 0;
  Survey survey_;
};

// Checks the mapping files and what they lead to.
void CheckMappings(const Survey& survey, CheckContext* context);
// Checks the keys that this device has from legacy sources and the properties.
void CheckLegacyKeys(const Survey& survey, const BootRecord& boot, CheckContext* context);
// Checks the files that are named by a key; `done` are those that the boots read.
void CheckReach(const Survey& survey, const std::set<std::string>& done, CheckContext* context);

}  // namespace extprop
