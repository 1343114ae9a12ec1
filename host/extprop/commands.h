#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace extprop {

struct BootRecord;

constexpr int kSuccess = 0;
constexpr int kFailed = 1;    // the kernel, the system or the library refused
constexpr int kBadInput = 2;  // the command line, or a file that it names

// Prints "extprop: MESSAGE" as one line on the standard error stream and returns `status`.
int Fail(int status, const std::string& message);

// Fails with `status` if a step ended the boot, and says which; else returns kSuccess.
int ReportStep(int status, const BootRecord& record);

// Each command adds itself to the parser; if the command line names it, `*chosen` becomes what runs
// it and returns the exit status.
void AddBootCommand(CLI::App* app, std::function<int()>* chosen);
void AddCarriersCommand(CLI::App* app, std::function<int()>* chosen);
void AddDiffCommand(CLI::App* app, std::function<int()>* chosen);
void AddExplainCommand(CLI::App* app, std::function<int()>* chosen);
void AddCheckCommand(CLI::App* app, std::function<int()>* chosen);

}  // namespace extprop
