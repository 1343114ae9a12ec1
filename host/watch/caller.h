#pragma once

namespace watch {

// Finds where the code of the loaded libraries lies. To be called again after the library is
// loaded.
void LocateLibraries();

// Returns whether the call that returns to `address` comes from libextproperty.so itself.
bool IsLibraryCode(const void* address);

// Returns whether the call that returns to `address` comes from libextproperty.so, or from libbase
// or the C++ library while libextproperty.so is what called them. To be called from the function
// that was called, as it looks at the stack.
bool IsMadeForLibrary(const void* address);

}  // namespace watch
