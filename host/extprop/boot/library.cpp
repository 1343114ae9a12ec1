#include "host/extprop/boot/library.h"

#include <dlfcn.h>
#include <locale.h>
#include <unistd.h>

#include <android-base/file.h>

namespace extprop {

namespace {

// Beside the executable, where it is installed, and in the build tree.
constexpr const char* kPlaces[] = {".", EXTPROP_INSTALLED_LIBRARY_DIR, EXTPROP_BUILT_LIBRARY_DIR};

std::string Find() {
  const std::string own = android::base::GetExecutableDirectory();
  for (const char* place : kPlaces) {
    std::string path = own + "/" + place + "/" + kLibraryName;
    if (access(path.c_str(), F_OK) == 0) return path;
  }
  return kLibraryName;
}

#define STRING "NSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"

template <typename Symbol>
void Resolve(void* library, const char* name, Symbol* symbol) {
  *symbol = reinterpret_cast<Symbol>(dlsym(library, name));
}

}  // namespace

Result<Library> LoadLibrary(const std::string& path) {
  // The device's C library knows no other encoding. Set here, as a private root hides the locale.
  if (setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
    return Error() << "the locale C.UTF-8 is missing (of the package libc-bin)";
  }
  const std::string name = path.empty() ? Find() : path;
  void* handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return Error() << "cannot load the library: " << dlerror();
  Library library = {};
  Resolve(handle, "KSSI_FETCH_IInitExtensionProperty", &library.factory);
  if (library.factory == nullptr) return Error() << name << " has no factory: " << dlerror();
  Resolve(handle, "KSSI_OBSERVE_PropertyFiles", &library.KSSI_OBSERVE_PropertyFiles);
  Resolve(handle,
          "_ZN7android4init36load_properties_from_file_without_seEPKcS2_PSt3mapI" STRING
          "S9_St4lessIS9_ESaISt4pairIKS9_S9_EEE",
          &library.load_properties_from_file_without_se);
  Resolve(handle, "_ZN7android4init19IsLegalPropertyNameERK" STRING, &library.IsLegalPropertyName);
  Resolve(handle, "_ZN7android4init20IsLegalPropertyValueERK" STRING "S8_",
          &library.IsLegalPropertyValue);
  Resolve(handle, "_ZN7android4init23ExtensionPartitionRootsB5cxx11E",
          &library.ExtensionPartitionRoots);
  return library;
}

}  // namespace extprop
