#pragma once

#include <string>

#include "extproperty/init_extension_property.h"
#include "extproperty/property_file_observer.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// The name that init loads the library by and gives to the factory.
constexpr const char* kLibraryName = "libextproperty.so";

// The library's factory and those of its exported functions that are no part of the service object,
// under the names that they have there. One of these that a library does not have is null.
struct Library {
  using PropertyMap = android::init::PropertyMap;
  static constexpr size_t kRootCount = 11;

  decltype(&KSSI_FETCH_IInitExtensionProperty) factory;
  void (*KSSI_OBSERVE_PropertyFiles)(android::init::PropertyFileObserver* observer);
  bool (*load_properties_from_file_without_se)(const char* path, const char* filter,
                                               PropertyMap* properties);
  bool (*IsLegalPropertyName)(const std::string& name);
  Result<void> (*IsLegalPropertyValue)(const std::string& name, const std::string& value);
  const std::string (*ExtensionPartitionRoots)[kRootCount];
};

// Loads the library for the rest of the process. An empty path means the one that belongs to this
// executable, by its place, or else the one that the loader finds. The process gets init's locale,
// in which text is UTF-8: the library judges values by it. A library without a factory is an error.
Result<Library> LoadLibrary(const std::string& path);

}  // namespace extprop
