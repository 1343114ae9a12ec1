#pragma once

#include <string>

namespace extprop {

// Returns what stands in one of the text files that the build puts into the executable, help texts
// and pages, by the file's name.
const char* EmbeddedText(const std::string& name);

}  // namespace extprop
