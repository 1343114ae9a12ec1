#include "host/watch/caller.h"

#include <link.h>
#include <stdint.h>
#include <string.h>
#include <unwind.h>

namespace watch {
namespace {

struct CodeRange {
  const char* library;  // what the file's name begins with
  uintptr_t begin;
  uintptr_t end;

  bool Contains(uintptr_t address) const { return address >= begin && address < end; }
};

CodeRange ranges[] = {
    {"libextproperty.so", 0, 0},
    {"libbase.so", 0, 0},
    {"libstdc++.so", 0, 0},
};
const CodeRange& the_library = ranges[0];

bool IsHelper(uintptr_t address) {
  return ranges[1].Contains(address) || ranges[2].Contains(address);
}

int Locate(dl_phdr_info* object, size_t /*size*/, void* /*data*/) {
  const char* slash = strrchr(object->dlpi_name, '/');
  const char* name = slash == nullptr ? object->dlpi_name : slash + 1;
  for (CodeRange& range : ranges) {
    if (strncmp(name, range.library, strlen(range.library)) != 0) continue;
    for (int i = 0; i < object->dlpi_phnum; ++i) {
      const ElfW(Phdr)& segment = object->dlpi_phdr[i];
      if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0) continue;
      range.begin = object->dlpi_addr + segment.p_vaddr;
      range.end = range.begin + segment.p_memsz;
    }
  }
  return 0;
}

struct Search {
  bool helper_seen = false;
  bool made_for_library = false;
};

// Goes from this file's frames through the helper's to the first one beyond.
_Unwind_Reason_Code Visit(_Unwind_Context* frame, void* data) {
  Search* search = static_cast<Search*>(data);
  const uintptr_t address = _Unwind_GetIP(frame);
  if (IsHelper(address)) {
    search->helper_seen = true;
    return _URC_NO_REASON;
  }
  if (!search->helper_seen) return _URC_NO_REASON;
  search->made_for_library = the_library.Contains(address);
  return _URC_END_OF_STACK;
}

}  // namespace

void LocateLibraries() {
  dl_iterate_phdr(Locate, nullptr);
}

bool IsLibraryCode(const void* address) {
  return the_library.Contains(reinterpret_cast<uintptr_t>(address));
}

bool IsMadeForLibrary(const void* address) {
  if (IsLibraryCode(address)) return true;
  if (!IsHelper(reinterpret_cast<uintptr_t>(address))) return false;
  Search search;
  _Unwind_Backtrace(Visit, &search);
  return search.made_for_library;
}

}  // namespace watch
