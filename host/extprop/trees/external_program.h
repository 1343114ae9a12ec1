#pragma once

#include <string>
#include <vector>

#include <android-base/result.h>

namespace extprop {

// Runs a program of the workstation in `directory` and returns what it wrote on its standard error
// stream; its standard output is dropped. `command` is the program's name and its arguments;
// `package` the Debian package to name where the program is missing. A program that does not end
// with 0 is an error, which quotes it.
android::base::Result<std::string> RunProgram(const std::vector<std::string>& command,
                                              const std::string& package,
                                              const std::string& directory);

}  // namespace extprop
