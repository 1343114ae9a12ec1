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
  std::string phone;
  std::vector<std::string> property_files;
  std::vector<std::string> assignments;
  enum class Order { kCall, kPost };
  std::vector<std::pair<Order, std::string>> steps;
  unsigned timeout = 30;  // in seconds
};

// Gives `command` the options that describe a boot; parsing stores them in `*options`.
// Returns the one for the tree, which is required.
CLI::Option* AddBootOptions(CLI::App* command, BootOptions* options);

// Tells which steps a boot takes and lists the loaders and words, for the end of boot's help text.
std::string LoaderHelp();

// Tells where that is, for those of the other commands.
std::string StepHelp();

// Parses a command line that consists of these options alone. The error is the parser's message.
android::base::Result<BootOptions> ParseBootOptions(int argc, char** argv);

// Every error says which input is wrong, but for those of the boots that a phone's properties take.
android::base::Result<BootPlan> MakePlan(const BootOptions& options);

}  // namespace extprop
