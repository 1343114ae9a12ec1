#pragma once

#include <string>
#include <utility>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"
#include "host/extprop/carriers/carrier_choice.h"

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
  std::vector<CarrierChoice> carriers;
  enum class Order { kCall, kPost };
  std::vector<std::pair<Order, std::string>> steps;
  unsigned timeout = 30;  // in seconds
};

// Gives `command` the options that describe a boot; parsing stores them in `*options`.
// Returns the one for the tree, which is required.
CLI::Option* AddBootOptions(CLI::App* command, BootOptions* options);

// Tells which steps a boot takes and lists the loaders and words, for the end of boot's help text.
std::string LoaderHelp();

// Gives `command` an option for carrier choices; each use of it adds one to `*choices`.
void AddCarrierOption(CLI::App* command, const std::string& name, const std::string& help,
                      std::vector<CarrierChoice>* choices);

// Tells where that is, for the help texts of the other commands.
std::string StepHelp();

// Parses a command line that consists of these options alone. The error is the parser's message.
android::base::Result<BootOptions> ParseBootOptions(int argc, char** argv);

// Every error says which input is wrong, but for those of the boots that a phone's properties take.
// Warns on the standard error stream of a carrier that the device does not know.
android::base::Result<BootPlan> MakePlan(const BootOptions& options);

}  // namespace extprop
