#pragma once

#include <string>

#include <android-base/result.h>

#include "extproperty/init_extension_property.h"

namespace extprop {

using Factory = decltype(&KSSI_FETCH_IInitExtensionProperty);

// The name that init loads the library by and gives to the factory.
constexpr const char* kLibraryName = "libextproperty.so";

// Loads the library for the rest of the process and returns its factory. An empty path means the
// library that belongs to this executable, by its place, or else the one that the loader finds. The
// process gets init's locale, in which text is UTF-8: the library judges values by it.
android::base::Result<Factory> LoadLibrary(const std::string& path);

}  // namespace extprop
