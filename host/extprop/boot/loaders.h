#pragma once

#include <functional>
#include <string>
#include <vector>

#include "extproperty/init_extension_property.h"

namespace extprop {

// One way to call the library, as `--call` names it.
struct Loader {
  const char* name;
  const char* argument;  // what the help calls its argument; null where it takes none
  const char* help;
  std::function<void(android::init::IInitExtensionProperty* service, const std::string& argument,
                     android::init::PropertyApplyCallback callback)>
      call;
  // It belongs to the loaders that init runs by itself: naming one of them replaces the default
  // order, while any other is run after it.
  bool of_default_order = true;
  bool fills_map = false;               // for init, before init loads what the device has stored
  std::vector<std::string> words = {};  // what the argument may be; empty for anything
};

const std::vector<Loader>& Loaders();

// The requests that the bind thread serves, and the word that ends it.
const std::vector<std::string>& RequestWords();
constexpr const char* kLastWord = "boot_mount_bind_complete";

// Returns the loader of that name which takes an argument, or takes none; null if there is none.
const Loader* FindLoader(const std::string& name, bool with_argument);

}  // namespace extprop
