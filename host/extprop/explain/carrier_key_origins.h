#pragma once

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/history.h"

namespace extprop {

// Follows the events of a boot and tells where the carrier keys come from that are in force, and
// what the boot wrote state files from.
class CarrierKeyOrigins {
 public:
  // The events are those of `record`. Properties are looked up in `histories`, which is to be kept
  // up to date with the events. Both outlive the object.
  CarrierKeyOrigins(const BootRecord& record, const HistoryMap& histories)
      : record_(record), histories_(histories) {}

  // To be told of every file event, in order.
  void TakeFile(const FileEvent& file);

  // To be told of every line that sets something in a mapping file that is read by itself, or in
  // what it imports.
  void TakeMappingLine(const PropertyLine& line);

  // Returns by which key the library reads the outermost property file `path`, as in
  // Setting::carrier. `again`: it was the last file to be read already, for another key.
  std::string ChainFor(const std::string& path, bool again) const;

  // Returns what stands for each line of the file: a setting of which place, carrier and inputs
  // hold. Null where the device had the file before. Good until the next event.
  const Setting* WrittenFrom(const std::string& path) const;

 private:
  using Mapping = std::unordered_map<std::string_view, const PropertyLine*>;  // by key

  std::string PlaceOf(const std::string& file) const;
  void TakeWrite(const FileEvent& file);
  const std::string& OutermostPath(const PropertyLine& line) const;
  Setting Translate(const Mapping& mapping, const std::string& key) const;
  Setting ConvertedFirstKey() const;
  Origin OperatorKey() const;
  Origin PropertyOrigin(const std::string& name, const std::string& value) const;
  std::string FileChain(const std::string& key, bool again) const;

  const BootRecord& record_;
  const HistoryMap& histories_;
  Origin nv_key_;
  Origin ssv_key_;
  Mapping nv_targets_;
  Mapping first_keys_;
  std::map<std::string, Setting> written_;  // by path
};

}  // namespace extprop
