#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/setting.h"

namespace extprop {

// What the library's carrier-keyed paths are made of.
struct KeyedPath {
  std::string kind;  // "first", "current" or "channel" of a directory; "file" of a single file
  std::string key;
};

// Returns how a partition's file depends on a carrier key; `kind` is empty where it does not.
KeyedPath ParseKeyedPath(const std::string& path);

// Returns whether the library takes a carrier key, or a part of one, from a property of that name.
bool IsCarrierProperty(const std::string& name);

// Returns the directory of `path`, without the slash.
std::string DirectoryOf(const std::string& path);

// Follows the events of a boot and tells where the carrier keys come from that are in force.
class CarrierKeyOrigins {
 public:
  // Properties are looked up in `histories`, which is to be kept up to date with the events.
  explicit CarrierKeyOrigins(const HistoryMap& histories) : histories_(histories) {}

  // To be told of every file that is read for its text.
  void TakeRead(const FileEvent& read);

  // To be told of every line that sets something in a mapping file that is read by itself. `place`
  // is the line's.
  void TakeMappingLine(const std::string& mapping_file, const std::string& name,
                       const std::string& value, const std::string& place);

  // What a conversion makes the first key from at this moment: the line of the mapping file, as
  // place, and the legacy key, as input. Empty where no key is known that maps to one.
  Origin ConvertedFirstKey() const;

  // Returns by which key the library reads the outermost property file `path`, as in
  // Setting::carrier. `again`: it was the last file to be read already, for another key.
  std::string ChainFor(const std::string& path, bool again) const;

 private:
  // What a mapping file says of a key: the target and the place of the line.
  using Mapping = std::map<std::string, std::pair<std::string, std::string>>;
  // In the order in which they are searched.
  using Mappings = std::vector<std::pair<std::string, Mapping>>;

  static Origin Translate(const Mappings& mappings, const std::string& key);
  Origin OperatorKey() const;
  Origin PropertyOrigin(const std::string& name, const std::string& value) const;
  std::string FileChain(const std::string& key, bool again) const;

  const HistoryMap& histories_;
  Origin nv_key_;
  Origin ssv_key_;
  Mappings nv_targets_;  // flags.prop
  Mappings first_keys_;  // nvmap.prop
};

}  // namespace extprop
