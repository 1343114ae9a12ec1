#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>

#include "host/extprop/command/commands.h"

namespace extprop {

int Fail(int status, const std::string& message) {
  std::string line = message;
  std::replace(line.begin(), line.end(), '\n', ' ');
  fprintf(stderr, "extprop: %s\n", line.c_str());
  return status;
}

int ReportStep(int status, const BootRecord& record) {
  for (const Step& step : record.steps) {
    if (!step.error.empty()) return Fail(status, step.name + ": " + step.error);
  }
  return kSuccess;
}

namespace {

const std::map<std::string, Severity> kLevels = {{"verbose", Severity::kVerbose},
                                                 {"info", Severity::kInfo},
                                                 {"warning", Severity::kWarning},
                                                 {"error", Severity::kError}};

void AddBootCommand(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  command
      ->add_option_function<std::string>(
          "--log", [options](const std::string& level) { options->log = kLevels.at(level); },
          "The lowest level to show; verbose adds file reads")
      ->type_name("LEVEL")
      ->check(CLI::IsMember(kLevels));
  command->add_flag("--json", options->json, "Print the whole record as JSON");
  command
      ->add_option("--keep", options->keep, "Leave the resulting tree in a new or empty directory")
      ->type_name("DIR");
  command
      ->add_option("--save-props", options->save_props,
                   "Write the resulting persist. properties, to boot with the next time")
      ->type_name("FILE");
  command
      ->add_option("--html", options->html,
                   "Write one page for the browser, with every property's history, and no text")
      ->type_name("FILE");
  command->footer(LoaderHelp() + R"(
Examples:
  extprop boot image --props getprop.txt
  extprop boot image --set persist.sys.vemra.operator.opta=AB --call persist --json
  extprop boot image --post boot_mount --post boot_mount_bind_complete --log warning
  extprop boot image --props getprop.txt --html boot.html
  extprop boot image --keep next --save-props next.prop && extprop boot next --props next.prop)");
}

void AddExplainCommand(CLI::App* command, Options* options) {
  command->add_option("NAME", options->name, "A property's name, or a glob such as 'ro.vemra.*'")
      ->required()
      ->type_name("");
  AddBootOptions(command, &options->boot)
      ->required(false)
      ->description("The device's files; the working directory if left out");
  command->add_flag("--json", options->json, "Print the settings as JSON");
  command->footer(StepHelp() + R"(
Examples:
  extprop explain ro.product.brand image --props getprop.txt
  extprop explain 'ro.vemra.image.*' image --call partitions
  extprop explain persist.sys.channel.info image --set persist.sys.911.shutdown=1 --json)");
}

void AddDiffCommand(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  command->add_option("DIR_B", options->tree_b, "The second device's files; the same if left out")
      ->type_name("");
  command
      ->add_option("--props-b", options->property_files_b, "A further --props, for the second boot")
      ->type_name("FILE")
      ->allow_extra_args(false);
  command->add_option("--set-b", options->assignments_b, "A further --set, for the second boot")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false);
  command->add_option("--against", options->against, "Compare with what getprop printed on a phone")
      ->type_name("FILE");
  command->add_flag("--json", options->json, "Print the differences as JSON");
  command->footer(StepHelp() + R"(
Exit status: 0 the same, 1 different, 2 trouble.

Examples:
  extprop diff image next-image --props getprop.txt
  extprop diff image --set-b ro.boot.vmcarrier=SOUTHNET
  extprop diff image --props boot.prop --against getprop.txt)");
}

void AddCarriersCommand(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  command->add_flag("--json", options->json, "Print the carriers as JSON");
  command->footer(StepHelp() + R"(
Examples:
  extprop carriers image --props getprop.txt
  extprop carriers image --json | jq '.carriers[] | select(.kind == "first")')");
}

void AddCheckCommand(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  command->add_flag("--json", options->json, "Print the findings as JSON");
  command->footer(FindingHelp() + "\n" + StepHelp() + R"(
Exit status: 0 without an error, 1 with one, 2 where the check could not run.

Examples:
  extprop check image --props getprop.txt
  extprop check image --set ro.boot.hw.sku=eea --json)");
}

struct Command {
  const char* name;
  const char* description;
  void (*add_options)(CLI::App* command, Options* options);
  int (*run)(const Options& options);
};

constexpr Command kCommands[] = {
    {"boot", "Boot a device's files and show what the library did. They are never changed.",
     AddBootCommand, Boot},
    {"explain", "Show every place that sets a property, and which one wins.", AddExplainCommand,
     Explain},
    {"diff", "Compare two boots, or a boot with a phone, and show what causes each difference.",
     AddDiffCommand, Diff},
    {"carriers", "Boot with each carrier key and show what differs from the default.",
     AddCarriersCommand, Carriers},
    {"check", "Find what is wrong in a device's files, as a compiler would.", AddCheckCommand,
     Check},
};

int Run(int argc, char** argv) {
  CLI::App app("See what the extension property library makes of a device's files.", "extprop");
  app.require_subcommand(1);
  Options options;
  options.boot.tree = ".";
  const Command* chosen = nullptr;
  for (const Command& command : kCommands) {
    CLI::App* subcommand = app.add_subcommand(command.name, command.description);
    command.add_options(subcommand, &options);
    subcommand->callback([&chosen, &command] { chosen = &command; });
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    return Fail(kBadInput, error.what());
  }
  return chosen->run(options);
}

}  // namespace

}  // namespace extprop

int main(int argc, char** argv) {
  try {
    return extprop::Run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "extprop: %s\n", error.what());
    return extprop::kFailed;
  }
}
