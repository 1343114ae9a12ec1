#include "host/extprop/boot/boot_options.h"

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

using Texts = std::vector<std::string>;

using Parse = std::function<Result<void>(const std::string& value)>;

// An option whose values are understood at once, in their order among other options.
void AddParsed(CLI::App* command, const std::string& name, const Parse& parse) {
  const auto take = [name, parse](const std::string& value) {
    Result<void> parsed = parse(value);
    if (!parsed.ok()) throw CLI::ValidationError(name + " " + value, parsed.error().message());
  };
  command->add_option_function<std::string>(name, take)->trigger_on_parse();
}

Result<void> RequireAmong(const Texts& words, const std::string& word) {
  if (Has(words, word)) return {};
  return Error() << "not one of " << android::base::Join(words, ", ");
}

Result<void> AddCall(const std::string& text, std::vector<PlannedStep>* steps) {
  const size_t equals = text.find('=');
  const bool has_argument = equals != std::string::npos;
  const std::string name = text.substr(0, equals);
  const std::string argument = has_argument ? text.substr(equals + 1) : "";
  const Loader* loader = FindLoader(name, has_argument);
  if (loader == nullptr) {
    if (FindLoader(name, !has_argument) == nullptr) return Error() << "no such loader";
    return Error() << (has_argument ? "it takes no argument" : "it needs an argument");
  }
  steps->push_back({loader, argument});
  return loader->words.empty() ? Result<void>() : RequireAmong(loader->words, argument);
}

// A request needs the bind thread.
Result<void> AddPost(const std::string& word, std::vector<PlannedStep>* steps) {
  if (std::none_of(steps->begin(), steps->end(), StartsThread)) {
    steps->push_back({FindLoader("service", true), "check_mount"});
  }
  steps->push_back({nullptr, word});
  return RequireAmong(RequestWords(), word);
}

Result<void> OpenDevice(const BootOptions& options, BootPlan* plan) {
  Result<void> stored = ReadStored(options.tree, &plan->properties);
  if (!stored.ok()) return stored;
  Result<DeviceTree> device = OpenTree(options.tree, options.partitions);
  if (!device.ok()) return device.error();
  if (!options.library.empty() && access(options.library.c_str(), R_OK) != 0) {
    return ErrnoError() << "--library " << options.library;
  }
  plan->device = std::move(*device);
  plan->library = options.library;
  plan->inputs = options.property_files;
  plan->inputs.push_back(options.phone);
  for (const Partition& partition : plan->device.partitions) {
    plan->inputs.push_back(partition.origin);
  }
  plan->timeout = std::chrono::seconds(options.timeout);
  return {};
}

Result<void> PlanSteps(const BootOptions& options, BootPlan* plan) {
  const bool is_default = std::none_of(
      options.steps.begin(), options.steps.end(),
      [](const auto& step) { return step.loader != nullptr && step.loader->of_default_order; });
  for (const char* name : {"partitions", "persist", "cota"}) {
    if (is_default) plan->steps.push_back({FindLoader(name, false), ""});
  }
  plan->steps.insert(plan->steps.end(), options.steps.begin(), options.steps.end());
  return {};
}

// A later one replaces an earlier one; what the tree has stored, which is there, those of files.
Result<void> GiveProperties(const BootOptions& options, BootPlan* plan) {
  Properties of_files;
  for (const std::string& file : options.property_files) {
    Result<void> read = ReadProperties(file, options.library, &of_files);
    if (!read.ok()) return read;
  }
  plan->properties.insert(of_files.begin(), of_files.end());
  for (const std::string& assignment : options.assignments) {
    Result<void> parsed = ParseAssignment(assignment, &plan->properties);
    if (!parsed.ok()) return Error() << "--set " << assignment << ": " << parsed.error();
  }
  return {};
}

Result<void> GivePhone(const BootOptions& options, BootPlan* plan) {
  if (options.phone.empty()) return {};
  Result<void> given = GiveFromPhone(options.phone, plan);
  if (!given.ok()) return Error() << "--phone " << given.error();
  return {};
}

Result<void> ChooseCarriers(const BootOptions& options, BootPlan* plan) {
  if (options.carriers.empty()) return {};
  Result<std::vector<CarrierKey>> keys = FindCarrierKeys(*plan);
  if (!keys.ok()) return keys.error();
  for (const std::string& doubt : Doubts(options.carriers, *keys)) {
    fprintf(stderr, "extprop: warning: --carrier %s\n", doubt.c_str());
  }
  Result<void> chosen = PutInForce(options.carriers, plan);
  if (!chosen.ok()) return Error() << "--carrier: " << chosen.error();
  return {};
}

}  // namespace

void AddCarrierOption(CLI::App* command, const std::string& name,
                      std::vector<CarrierChoice>* choices) {
  AddParsed(command, name, [choices](const std::string& value) -> Result<void> {
    Result<CarrierChoice> choice = ParseCarrierChoice(value);
    if (!choice.ok()) return choice.error();
    choices->push_back(*choice);
    return {};
  });
}

void AddBootOptions(CLI::App* command, BootOptions* options) {
  command->add_option("DIR", options->tree)->required();
  command->add_option("--partition", options->partitions)->allow_extra_args(false);
  command->add_option("--phone", options->phone);
  command->add_option("--props", options->property_files)->allow_extra_args(false);
  command->add_option("--set", options->assignments)->allow_extra_args(false);
  AddCarrierOption(command, "--carrier", &options->carriers);
  auto* steps = &options->steps;
  AddParsed(command, "--call", [steps](const auto& text) { return AddCall(text, steps); });
  AddParsed(command, "--post", [steps](const auto& word) { return AddPost(word, steps); });
  command->add_option("--library", options->library);
  command->add_option("--timeout", options->timeout)->check(CLI::Range(1U, 86400U).description(""));
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
  BootPlan plan;
  // A phone's properties depend on what a boot without them does, a carrier's on all others.
  for (const auto part : {OpenDevice, PlanSteps, GiveProperties, GivePhone, ChooseCarriers}) {
    Result<void> done = part(options, &plan);
    if (!done.ok()) return done.error();
  }
  return plan;
}

}  // namespace extprop
