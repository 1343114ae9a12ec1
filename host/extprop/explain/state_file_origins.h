#pragma once

#include <map>
#include <string>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/carrier_key_origin.h"
#include "host/extprop/explain/setting.h"

namespace extprop {

// Knows which state files the boot itself has written, and from what.
class StateFileOrigins {
 public:
  explicit StateFileOrigins(const CarrierKeyOrigins& keys) : keys_(keys) {}

  // To be told of every file that was written, when it was.
  void TakeWrite(const FileEvent& written);

  // Returns what stands for each line of the file: a setting of which place, carrier and inputs
  // hold. Null where the device had the file before. Good as long as this object.
  const Setting* WrittenFrom(const std::string& path) const;

  // Returns the property that takes the whole content of a state file of the old format as its
  // value, null for any other file.
  static const char* BareKeyProperty(const std::string& path);

 private:
  const CarrierKeyOrigins& keys_;
  std::map<std::string, Setting> written_;
};

}  // namespace extprop
