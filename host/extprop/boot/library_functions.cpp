#include "host/extprop/boot/library_functions.h"

#include <dlfcn.h>

namespace extprop {

namespace {

#define STRING "NSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEE"

template <typename Symbol>
void Find(void* library, const char* name, Symbol* symbol) {
  *symbol = reinterpret_cast<Symbol>(dlsym(library, name));
}

}  // namespace

LibraryFunctions FindLibraryFunctions(Factory factory) {
  LibraryFunctions found = {};
  Dl_info about;
  void* library = dladdr(reinterpret_cast<void*>(factory), &about) == 0
                      ? nullptr
                      : dlopen(about.dli_fname, RTLD_NOW | RTLD_NOLOAD);
  if (library == nullptr) return found;
  Find(library, "KSSI_OBSERVE_PropertyFiles", &found.KSSI_OBSERVE_PropertyFiles);
  Find(library,
       "_ZN7android4init36load_properties_from_file_without_seEPKcS2_PSt3mapI" STRING
       "S9_St4lessIS9_ESaISt4pairIKS9_S9_EEE",
       &found.load_properties_from_file_without_se);
  Find(library, "_ZN7android4init19IsLegalPropertyNameERK" STRING, &found.IsLegalPropertyName);
  Find(library, "_ZN7android4init20IsLegalPropertyValueERK" STRING "S8_",
       &found.IsLegalPropertyValue);
  Find(library, "_ZN7android4init22find_nv_ssv_target_keyE" STRING "S6_PS6_",
       &found.find_nv_ssv_target_key);
  Find(library, "_ZN7android4init15load_old_nv_keyEP" STRING "S7_", &found.load_old_nv_key);
  Find(library, "_ZN7android4init16read_old_ssv_keyEP" STRING, &found.read_old_ssv_key);
  Find(library, "_ZN7android4init23ExtensionPartitionRootsB5cxx11E",
       &found.ExtensionPartitionRoots);
  return found;
}

}  // namespace extprop
