#include <android-base/strings.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>

#include "host/extprop/boot/loaders.h"
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
  command->add_flag("--all", options->all, "Show every property, not only what changed");
  command->add_flag("--json", options->json, "Print the whole record as JSON");
  command
      ->add_option("--keep", options->keep,
                   "Leave the resulting tree in a new or empty directory, to boot next")
      ->type_name("DIR");
  command
      ->add_option("--save-props", options->save_props,
                   "Write what the device then has stored, for --props")
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
  extprop boot image --phone getprop.txt --html boot.html
  extprop boot image --props device.prop --keep next && extprop boot next --props device.prop)");
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
Exit status: 0, 1 where nothing sets NAME or the boot could not be made, 2 bad input.

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
  AddCarrierOption(command, "--carrier-b", "A further --carrier, for the second boot",
                   &options->carriers_b);
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
  CLI::Option* tree_b =
      command->add_option("DIR_B", options->tree_b, "The next build's files, to compare with")
          ->type_name("");
  CLI::Option* stat =
      command->add_flag("--stat", options->stat, "Print how much differs, not what");
  CLI::Option* json = command->add_flag("--json", options->json, "Print the carriers as JSON");
  CLI::Option* json_lines =
      command->add_flag("--json-lines", options->json_lines, "The same, one object a line");
  for (CLI::Option* file :
       {command->add_option("--html", options->html,
                            "Write one page for the browser, property by carrier, and no text"),
        command->add_option("--csv", options->csv,
                            "Write what differs for spreadsheets, property by carrier, and no "
                            "text; an empty cell is unset")}) {
    file->type_name("FILE")->excludes(tree_b)->excludes(stat)->excludes(json)->excludes(json_lines);
  }
  command
      ->add_option("-j,--jobs", options->jobs,
                   "How many boots to make at once; as many as there are cores if left out")
      ->type_name("N");
  command->footer(StepHelp() + R"(
Exit status: 0 done, 1 a boot failed, 2 bad input. Of two builds: 0 the same, 1 different, 2 trouble.

Examples:
  extprop carriers image --props getprop.txt
  extprop carriers image next-image --stat
  extprop carriers image --html carriers.html --csv carriers.csv
  extprop carriers image --json-lines | jq -r 'select(.differences == []) | .name')");
}

void AddExpectCommand(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  command->add_option("FILE", options->expectation_files, "Files of expectations")->type_name("");
  command->add_flag("--write", options->write, "Print a file of what the device does instead");
  command
      ->add_option("-j,--jobs", options->jobs,
                   "How many boots to make at once; as many as there are cores if left out")
      ->type_name("N");
  command->add_flag("--json", options->json, "Print what is unmet as JSON");
  command->footer(R"(A file has lines of these forms; "#" begins a comment:
  NAME=VALUE      the property has the value
  NAME=*          it has any value
  !NAME           it is unset
  [first=KEY]     what follows holds for a device of the carrier, as of --carrier; several may stand
                  together: [current=KEY first=KEY]
  [NAME=VALUE]    ... for a device that boots with the property, as of --set
  [default]       ... for the device as it is
What stands before any section holds for the device as it is and for each section's. A line that does
not hold is an error [unmet], a carrier that nothing on the device knows an error [unknown-carrier].

)" + StepHelp() + R"(
Exit status: 0 all is met, 1 something is not, 2 trouble or a bad line.

Examples:
  extprop expect image expect.prop --props getprop.txt
  extprop expect --write image --props getprop.txt >expect.prop)");
}

void AddCheckCommand(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  command->add_flag("--json", options->json, "Print the findings as JSON");
  command
      ->add_option("--sarif", options->sarif, "Write them as SARIF 2.1.0 too, for other programs")
      ->type_name("FILE");
  command->add_option("--fail-on", options->fail_on, "The least severity for exit status 1")
      ->type_name("SEVERITY")
      ->capture_default_str()
      ->check(CLI::IsMember({"error", "warning", "note"}));
  for (auto [name, ids, help] :
       {std::tuple("--ignore", &options->findings.ignore, "Leave out a kind; may be repeated"),
        std::tuple("--only", &options->findings.only, "Leave out all others; may be repeated")}) {
    command->add_option(name, *ids, help)
        ->type_name("ID")
        ->allow_extra_args(false)
        ->check(CLI::IsMember(FindingIds()).description(""));
  }
  command
      ->add_option("--baseline", options->findings.baseline,
                   "Leave out what an earlier check --json printed, wherever its lines are now")
      ->type_name("FILE");
  command->add_flag("--overrides", options->overrides,
                    "Tell where a partition replaces the value of an earlier one");
  command->footer(FindingHelp() + R"(
The findings are on the standard output, their number on the standard error stream. Besides what
the boot reads, the files of all carriers are checked, and the COTA image and modules that
/data/cota/cota_mount_info.prop and cota_module_info.prop name.

)" + StepHelp() + R"(
Exit status: 0 without a finding of the severity of --fail-on or above, 1 with one, 2 where the
check could not run.

Examples:
  extprop check image --props getprop.txt
  extprop check image --set ro.boot.hw.sku=eea --fail-on warning --ignore missing-partition
  extprop check image --json >known.json && extprop check next-image --baseline known.json
  extprop check image --sarif check.sarif)");
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
    {"expect", "Check that a device does what a file expects, for each carrier in it.",
     AddExpectCommand, Expect},
    {"check", "Find what is wrong in a device's files, as a compiler would.", AddCheckCommand,
     Check},
};

constexpr const char* kHelp = "help";

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

// Returns null if there is none of that name.
const CLI::App* FindCommand(const CLI::App& app, const std::string& name) {
  for (const CLI::App* command : CommandsOf(app)) {
    if (command->get_name() == name) return command;
  }
  return nullptr;
}

// What the completions of the shells ask for: `extprop complete WORD...`, where the last word is
// the one to complete, prints what it may become, each with a tab and its description. Nothing
// where a file's name is wanted.
class Completion {
 public:
  explicit Completion(std::vector<std::string> words)
      : words_(std::move(words)), last_(words_.empty() ? "" : words_.back()) {}

  void Print(const CLI::App& app) const {
    const CLI::App* command = words_.empty() ? nullptr : FindCommand(app, words_[0]);
    if (words_.size() <= 1 || words_[0] == kHelp) {
      for (const CLI::App* each : CommandsOf(app)) {
        Offer(each->get_name(), each->get_description());
      }
    } else if (command != nullptr) {
      PrintFor(*command);
    }
  }

 private:
  void PrintFor(const CLI::App& command) const {
    const CLI::Option* before = command.get_option_no_throw(words_[words_.size() - 2]);
    if (before != nullptr && before->get_items_expected_max() > 0) return PrintValues(*before);
    if (last_[0] != '-') return;
    for (const CLI::Option* option : command.get_options()) {
      if (!option->get_lnames().empty()) {
        Offer("--" + option->get_lnames()[0], option->get_description());
      }
    }
  }

  void PrintValues(const CLI::Option& option) const {
    const std::string type = option.get_type_name();
    if (type.rfind("LEVEL", 0) == 0) {
      for (const auto& [name, level] : kLevels) Offer(name, "");
    } else if (type == "WORD") {
      for (const std::string& word : RequestWords()) Offer(word, "");
    } else if (type.rfind("LOADER", 0) == 0) {
      for (const Loader& loader : Loaders()) {
        const std::string name = loader.name + std::string(loader.argument == nullptr ? "" : "=");
        if (loader.words.empty()) Offer(name, loader.help);
        for (const std::string& word : loader.words) Offer(name + word, loader.help);
      }
    }
  }

  void Offer(const std::string& candidate, const std::string& description) const {
    if (candidate.rfind(last_, 0) == 0) std::cout << candidate << '\t' << description << '\n';
  }

  const std::vector<std::string> words_;
  const std::string last_;
};

// Quotes what a shell would not take as it stands.
std::string CommandLine(int argc, char** argv) {
  std::string line = "extprop";
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const bool plain =
        !word.empty() &&
        word.find_first_not_of(
            "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./=:,+@%") ==
            std::string::npos;
    line +=
        plain ? " " + word : " '" + android::base::StringReplace(word, "'", "'\\''", true) + "'";
  }
  return line;
}

int Help(const CLI::App& app, const std::string& name) {
  const CLI::App* command = name.empty() ? &app : FindCommand(app, name);
  if (command == nullptr) return Fail(kBadInput, "help " + name + ": no such command");
  std::cout << command->help(name.empty() ? "" : "extprop");
  return std::cout.flush() ? kSuccess : kFailed;
}

int Run(int argc, char** argv) {
  CLI::App app("See what the extension property library makes of a device's files.", "extprop");
  app.require_subcommand(1);
  app.set_version_flag("--version", "extprop " EXTPROP_VERSION, "Print the version");
  app.footer(
      "extprop help COMMAND tells all about a command, extprop help boot about booting too.");
  Options options;
  options.command_line = CommandLine(argc, argv);
  options.boot.tree = ".";
  const Command* chosen = nullptr;
  for (const Command& command : kCommands) {
    CLI::App* subcommand = app.add_subcommand(command.name, command.description);
    command.add_options(subcommand, &options);
    subcommand->callback([&chosen, &command] { chosen = &command; });
  }
  app.add_subcommand(kHelp, "Tell about a command.");
  // Neither takes options.
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (!words.empty() && words[0] == kHelp) return Help(app, words.size() == 1 ? "" : words[1]);
  if (!words.empty() && words[0] == "complete") {
    Completion({words.begin() + 1, words.end()}).Print(app);
    return kSuccess;
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    return app.exit(asked);
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
