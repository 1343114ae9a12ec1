#include "host/extprop/boot/library.h"

#include <dlfcn.h>
#include <locale.h>
#include <unistd.h>

#include <android-base/file.h>

#include <clocale>

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

}  // namespace

android::base::Result<Factory> LoadLibrary(const std::string& path) {
  // The device's C library knows no other encoding. Set here, as a private root hides the locale.
  if (setlocale(LC_CTYPE, "C.UTF-8") == nullptr) {
    return android::base::Error() << "the locale C.UTF-8 is missing (of the package libc-bin)";
  }
  const std::string name = path.empty() ? Find() : path;
  void* library = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return android::base::Error() << "cannot load the library: " << dlerror();
  void* symbol = dlsym(library, "KSSI_FETCH_IInitExtensionProperty");
  if (symbol == nullptr) return android::base::Error() << name << " has no factory: " << dlerror();
  setlocale(LC_CTYPE, "C.UTF-8");
  return reinterpret_cast<Factory>(symbol);
}

}  // namespace extprop
