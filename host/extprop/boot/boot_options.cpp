#include "host/extprop/boot/boot_options.h"

#include <android-base/stringprintf.h>
#include <android-base/strings.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>

#include "host/extprop/boot/kept_tree.h"
#include "host/extprop/boot/phone.h"
#include "host/extprop/boot/property_input.h"
#include "host/extprop/carriers/carrier_keys.h"
#include "host/extprop/trees/open_tree.h"

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using Order = BootOptions::Order;

// An option that may be repeated; its values keep their order among all such options.
CLI::Option* AddRepeated(CLI::App* command, const std::string& name, const std::string& help,
                         const char* value, const std::function<void(const std::string&)>& take) {
  return command
      ->add_option(
          name,
          [take](const CLI::results_t& values) {
            take(values.back());
            return true;
          },
          help)
      ->type_name(value)
      ->expected(1)
      ->trigger_on_parse();
}

bool IsAmong(const std::vector<std::string>& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

Result<PlannedStep> PlanCall(const std::string& text) {
  const size_t equals = text.find('=');
  const std::string name = text.substr(0, equals);
  PlannedStep step;
  step.loader = FindLoader(name, equals != std::string::npos);
  if (step.loader != nullptr) {
    if (equals != std::string::npos) step.argument = text.substr(equals + 1);
    const auto& words = step.loader->words;
    if (words.empty() || IsAmong(words, step.argument)) return step;
    return Error() << "not one of " << android::base::Join(words, ", ");
  }
  if (FindLoader(name, true) != nullptr) return Error() << "it needs an argument";
  if (FindLoader(name, false) != nullptr) return Error() << "it takes no argument";
  return Error() << "no such loader";
}

bool StartsThread(const PlannedStep& step) {
  return step.loader == FindLoader("service", true) && step.argument == "check_mount";
}

Result<std::vector<PlannedStep>> PlanSteps(const BootOptions& options) {
  std::vector<PlannedStep> steps;
  bool default_order = true;
  bool has_thread = false;
  for (const auto& [order, text] : options.steps) {
    if (order == Order::kPost) {
      if (!IsAmong(RequestWords(), text)) {
        return Error() << "--post " << text << ": not one of "
                       << android::base::Join(RequestWords(), ", ");
      }
      if (!has_thread) steps.push_back({FindLoader("service", true), "check_mount"});
      has_thread = true;
      steps.push_back({nullptr, text});
      continue;
    }
    Result<PlannedStep> step = PlanCall(text);
    if (!step.ok()) return Error() << "--call " << text << ": " << step.error();
    if (step->loader->of_default_order) default_order = false;
    if (StartsThread(*step)) has_thread = true;
    steps.push_back(*step);
  }
  if (!default_order) return steps;
  std::vector<PlannedStep> all;
  for (const char* name : {"partitions", "persist", "cota"}) {
    all.push_back({FindLoader(name, false), ""});
  }
  all.insert(all.end(), steps.begin(), steps.end());
  return all;
}

// In the order in which the later replaces the earlier.
Result<Properties> GivenProperties(const BootOptions& options, const Properties& stored) {
  Properties given;
  if (!options.property_files.empty()) {
    Result<Factory> library = LoadLibrary(options.library);
    if (!library.ok()) return library.error();
    for (const std::string& file : options.property_files) {
      Result<void> read = ReadProperties(file, *library, &given);
      if (!read.ok()) return read.error();
    }
  }
  for (const auto& [name, value] : stored) given[name] = value;
  for (const std::string& assignment : options.assignments) {
    Result<void> parsed = ParseAssignment(assignment, &given);
    if (!parsed.ok()) return Error() << "--set " << assignment << ": " << parsed.error();
  }
  return given;
}

Result<void> AddPhone(const std::string& file, BootPlan* plan) {
  Properties phone;
  Result<void> read = ReadPhone(file, &phone);
  if (!read.ok()) return read;
  Result<Properties> beneath = BootsWith(phone, *plan);
  if (!beneath.ok()) return beneath.error();
  plan->properties.insert(beneath->begin(), beneath->end());
  return {};
}

std::string Words(const char* of, const std::vector<std::string>& words) {
  std::string text = std::string(of) + " is one of:\n";
  for (const std::string& word : words) text += "  " + word + "\n";
  return text;
}

Result<void> ChooseCarriers(const std::vector<CarrierChoice>& carriers, BootPlan* plan) {
  if (carriers.empty()) return {};
  Result<std::vector<CarrierKey>> keys = FindCarrierKeys(*plan);
  if (!keys.ok()) return keys.error();
  for (const std::string& doubt : Doubts(carriers, *keys)) {
    fprintf(stderr, "extprop: warning: --carrier %s\n", doubt.c_str());
  }
  Result<void> chosen = PutInForce(carriers, plan);
  if (!chosen.ok()) return Error() << "--carrier: " << chosen.error();
  return {};
}

}  // namespace

void AddCarrierOption(CLI::App* command, const std::string& name, const std::string& help,
                      std::vector<CarrierChoice>* choices) {
  AddRepeated(command, name, help, "KIND=KEY", [name, choices](const std::string& value) {
    Result<CarrierChoice> choice = ParseCarrierChoice(value);
    if (!choice.ok()) {
      throw CLI::ValidationError(name + " " + value, choice.error().message());
    }
    choices->push_back(*choice);
  });
}

std::string StepHelp() {
  return "extprop help boot tells in which order the loaders are called, and their names and "
         "words.\n";
}

std::string LoaderHelp() {
  std::string help =
      "The default order is partitions, persist, cota. Naming a loader other than service and "
      "media\n"
      "replaces it; those two and posts alone come after it. A post needs the bind thread, which "
      "is\n"
      "started first where no service=check_mount does it. LOADER is one of:\n";
  for (const Loader& loader : Loaders()) {
    std::string name = loader.name;
    if (loader.argument != nullptr) name += std::string("=") + loader.argument;
    help += android::base::StringPrintf("  %-18s%s\n", name.c_str(), loader.help);
  }
  for (const Loader& loader : Loaders()) {
    if (!loader.words.empty()) help += Words(loader.argument, loader.words);
  }
  return help + Words("WORD", RequestWords());
}

CLI::Option* AddBootOptions(CLI::App* command, BootOptions* options) {
  CLI::Option* tree =
      command->add_option("DIR", options->tree, "The device's files: an extracted system image")
          ->required()
          ->type_name("");
  AddRepeated(command, "--partition",
              "Where a partition lies that is not in DIR: a directory or an image", "NAME=DIR|IMG",
              [options](const std::string& value) { options->partitions.push_back(value); });
  command
      ->add_option("--phone", options->phone,
                   "A running phone's getprop or bugreport: boot with what it booted with")
      ->type_name("FILE");
  AddRepeated(command, "--props",
              "Properties to boot with: a build.prop, or what getprop prints; - is the standard "
              "input",
              "FILE",
              [options](const std::string& value) { options->property_files.push_back(value); });
  AddRepeated(command, "--set", "One more property to boot with, after all files", "NAME=VALUE",
              [options](const std::string& value) { options->assignments.push_back(value); });
  AddCarrierOption(command, "--carrier",
                   "Boot as set up for a carrier: first, current, channel, nv, ssv, operator or "
                   "vmcarrier, and its key",
                   &options->carriers);
  AddRepeated(
      command, "--call", "Call a loader", "LOADER[=ARGUMENT]",
      [options](const std::string& value) { options->steps.emplace_back(Order::kCall, value); });
  AddRepeated(
      command, "--post", "Post a request to the bind thread, wait until it is served", "WORD",
      [options](const std::string& value) { options->steps.emplace_back(Order::kPost, value); });
  command->add_option("--library", options->library, "The libextproperty.so to load")
      ->type_name("FILE");
  command->add_option("--timeout", options->timeout, "Give up a boot that takes longer")
      ->type_name("SECONDS")
      ->check(CLI::Range(1U, 86400U).description(""));
  return tree;
}

Result<BootOptions> ParseBootOptions(int argc, char** argv) {
  CLI::App app;
  BootOptions options;
  AddBootOptions(&app, &options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return Error() << error.what();
  }
  return options;
}

Result<BootPlan> MakePlan(const BootOptions& options) {
  Properties stored;
  Result<void> whole = ReadStored(options.tree, &stored);
  if (!whole.ok()) return whole.error();
  Result<DeviceTree> device = OpenTree(options.tree, options.partitions);
  if (!device.ok()) return device.error();
  if (!options.library.empty() && access(options.library.c_str(), R_OK) != 0) {
    return ErrnoError() << "--library " << options.library;
  }
  BootPlan plan;
  plan.tree = options.tree;
  plan.device = std::move(*device);
  plan.library = options.library;
  plan.timeout = std::chrono::seconds(options.timeout);
  Result<std::vector<PlannedStep>> steps = PlanSteps(options);
  if (!steps.ok()) return steps.error();
  plan.steps = *steps;
  Result<Properties> given = GivenProperties(options, stored);
  if (!given.ok()) return given.error();
  plan.properties = *given;
  // Last, as it boots with all the rest.
  if (!options.phone.empty()) {
    Result<void> added = AddPhone(options.phone, &plan);
    if (!added.ok()) return Error() << "--phone " << added.error();
  }
  Result<void> chosen = ChooseCarriers(options.carriers, &plan);
  if (!chosen.ok()) return chosen.error();
  return plan;
}

}  // namespace extprop
