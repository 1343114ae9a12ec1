#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace extprop {

constexpr int kSuccess = 0;
constexpr int kFailed = 1;    // the kernel, the system or the library refused
constexpr int kBadInput = 2;  // the command line, or a file that it names

// Prints "extprop: MESSAGE" as one line on the standard error stream and returns `status`.
int Fail(int status, const std::string& message);

// Each command adds itself to the parser; if the command line names it, `*chosen` becomes what runs
// it and returns the exit status.
void AddBootCommand(CLI::App* app, std::function<int()>* chosen);

}  // namespace extprop
