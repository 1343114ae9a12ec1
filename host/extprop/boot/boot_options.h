#pragma once

#include <string>
#include <vector>

#include "host/extprop/boot/boot.h"
#include "host/extprop/carriers/carrier_choice.h"
#include "host/extprop/vocabulary.h"

namespace CLI {
class App;
}

namespace extprop {

// What the command line says about a boot.
struct BootOptions {
  std::string tree;
  std::vector<std::string> partitions;  // NAME=DIR|IMG
  std::string library;
  std::string phone;
  std::vector<std::string> property_files;
  std::vector<std::string> assignments;
  std::vector<CarrierChoice> carriers;
  std::vector<PlannedStep> steps;  // those that are named; the default order may come before them
  unsigned timeout = 30;           // in seconds
};

// Gives `command` the options that describe a boot, the tree being required; parsing stores them in
// `*options`. They have no help texts.
void AddBootOptions(CLI::App* command, BootOptions* options);

// Gives `command` an option for carrier choices; each use of it adds one to `*choices`.
void AddCarrierOption(CLI::App* command, const std::string& name,
                      std::vector<CarrierChoice>* choices);

// Parses a command line that consists of these options alone. The error is the parser's message.
Result<BootOptions> ParseBootOptions(int argc, char** argv);

// Every error says which input is wrong, but for those of the boots that a phone's properties take.
// Warns on the standard error stream of a carrier that the device does not know.
Result<BootPlan> MakePlan(const BootOptions& options);

}  // namespace extprop
