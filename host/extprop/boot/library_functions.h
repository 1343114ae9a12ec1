#pragma once

#include <string>

#include <android-base/result.h>

#include "extproperty/property_file_observer.h"
#include "host/extprop/boot/library.h"

namespace extprop {

// The library's exported functions that are no part of the service object, under the names that
// they have there. One that a library does not have is null.
struct LibraryFunctions {
  using PropertyMap = android::init::PropertyMap;

  void (*KSSI_OBSERVE_PropertyFiles)(android::init::PropertyFileObserver* observer);
  bool (*load_properties_from_file_without_se)(const char* path, const char* filter,
                                               PropertyMap* properties);
  bool (*IsLegalPropertyName)(const std::string& name);
  android::base::Result<void> (*IsLegalPropertyValue)(const std::string& name,
                                                      const std::string& value);
  void (*find_nv_ssv_target_key)(std::string key, std::string mapping_file, std::string* target);
  void (*load_old_nv_key)(std::string* nv_key, std::string* nv_target_key);
  void (*read_old_ssv_key)(std::string* ssv_key);

  static constexpr size_t kRootCount = 11;
  const std::string (*ExtensionPartitionRoots)[kRootCount];
};

// Finds them in the library that `factory` belongs to.
LibraryFunctions FindLibraryFunctions(Factory factory);

}  // namespace extprop
