#pragma once

#include <string>
#include <utility>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace extprop {

// What the command line says about a boot, as it stands there.
struct BootOptions {
  std::string tree;
  std::vector<std::string> partitions;  // NAME=DIR|IMG
  std::string library;
  std::vector<std::string> property_files;
  std::vector<std::string> assignments;
  enum class Order { kCall, kPost };
  std::vector<std::pair<Order, std::string>> steps;
};

// Gives `command` the options that describe a boot; parsing stores them in `*options`.
// Returns the one for the tree, which is required.
CLI::Option* AddBootOptions(CLI::App* command, BootOptions* options);

// Tells which steps a boot takes and lists the loaders, for the end of a help text.
std::string StepHelp();

// Parses a command line that consists of these options alone. The error is the parser's message.
android::base::Result<BootOptions> ParseBootOptions(int argc, char** argv);

// Every error is the user's and says which input is wrong.
android::base::Result<BootPlan> MakePlan(const BootOptions& options);

}  // namespace extprop
