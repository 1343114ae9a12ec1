#pragma once

#include <string>

#include "host/extprop/check/check_context.h"

namespace extprop {

// Returns true for what was read of a state file that has a bare key, as the old format has it, in
// place of a property.
bool IsBareKey(const Reading& reading);

// Reports white space at the end of the bare key that the file at `path` has, which no name of a
// file or mapping has. Returns whether there is none.
bool CheckBareKey(const std::string& path, const std::string& key, CheckContext* context);

}  // namespace extprop
