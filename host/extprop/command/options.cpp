#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include <CLI/CLI.hpp>

#include "host/extprop/boot/loaders.h"
#include "host/extprop/check/checks.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/embedded.h"
#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

using android::base::Split;
using android::base::StringPrintf;
using android::base::Trim;

// Puts the list into the help text below the options.
void FillInList(CLI::App* command, const std::string& list) {
  command->footer(android::base::StringReplace(command->get_footer(), "@LIST@", list, false));
}

std::string ListOfWords(const char* what, const std::vector<std::string>& words) {
  return what + (" is one of:\n  " + android::base::Join(words, "\n  ")) + "\n";
}

void AddBoot(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  command->add_option("--log", options->log)->check(CLI::IsMember(kLogLevels));
  command->add_flag("--all", options->all);
  command->add_flag("--json", options->json);
  command->add_option("--keep", options->keep);
  command->add_option("--save-props", options->save_props);
  command->add_option("--html", options->html);

  std::string loaders, words;
  for (const Loader& loader : Loaders()) {
    std::string name = loader.name;
    if (loader.argument != nullptr) name += std::string("=") + loader.argument;
    loaders += StringPrintf("  %-18s%s\n", name.c_str(), loader.help);
    if (!loader.words.empty()) words += ListOfWords(loader.argument, loader.words);
  }
  FillInList(command, loaders + words + ListOfWords("WORD", RequestWords()));
}

void AddExplain(CLI::App* command, Options* options) {
  command->add_option("NAME", options->name)->required();
  AddBootOptions(command, &options->boot);
  command->get_option("DIR")->required(false);
  command->add_flag("--json", options->json);
}

void AddDiff(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  command->add_option("DIR_B", options->tree_b);
  command->add_option("--props-b", options->property_files_b)->allow_extra_args(false);
  command->add_option("--set-b", options->assignments_b)->allow_extra_args(false);
  AddCarrierOption(command, "--carrier-b", &options->carriers_b);
  command->add_option("--against", options->against);
  command->add_flag("--json", options->json);
}

void AddCarriers(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  CLI::Option* of_text[] = {command->add_option("DIR_B", options->tree_b),
                            command->add_flag("--stat", options->stat),
                            command->add_flag("--json", options->json),
                            command->add_flag("--json-lines", options->json_lines)};
  CLI::Option* of_files[] = {command->add_option("--html", options->html),
                             command->add_option("--csv", options->csv)};
  for (CLI::Option* file : of_files) {
    for (CLI::Option* other : of_text) file->excludes(other);
  }
  for (CLI::Option* json : {of_text[2], of_text[3]}) json->excludes(of_text[1]);
  command->add_option("-j,--jobs", options->jobs);
}

void AddExpect(CLI::App* command, Options* options) {
  AddBootOptions(command, &options->boot);
  command->add_option("FILE", options->expectation_files);
  CLI::Option* write = command->add_flag("--write", options->write);
  command->add_option("-j,--jobs", options->jobs);
  command->add_flag("--json", options->json)->excludes(write);
}

void AddCheck(CLI::App* command, Options* options) {
  std::vector<std::string> ids;
  std::string list;
  for (const FindingKind& kind : FindingKinds()) {
    ids.emplace_back(kind.id);
    list += StringPrintf("  %-23s%-9s%s\n", kind.id, kind.severity, kind.help);
  }
  FillInList(command, list);
  AddBootOptions(command, &options->boot);
  const auto is_id = CLI::IsMember(ids).description("");
  command->add_flag("--json", options->json);
  command->add_option("--sarif", options->sarif);
  command->add_option("--fail-on", options->fail_on)
      ->capture_default_str()
      ->check(CLI::IsMember({"error", "warning", "note"}));
  command->add_option("--ignore", options->findings.ignore)->allow_extra_args(false)->check(is_id);
  command->add_option("--only", options->findings.only)->allow_extra_args(false)->check(is_id);
  command->add_option("--baseline", options->findings.baseline);
  command->add_flag("--overrides", options->overrides);
}

struct Command {
  const char* name;
  void (*add_options)(CLI::App* command, Options* options);
  int (*run)(const Options& options);
};

constexpr Command kCommands[] = {
    {"boot", AddBoot, Boot},       {"explain", AddExplain, Explain},
    {"diff", AddDiff, Diff},       {"carriers", AddCarriers, Carriers},
    {"expect", AddExpect, Expect}, {"check", AddCheck, Check},
};

// Each line has an option, what stands for its value, and what it is for.
void DescribeOptions(CLI::App* command, const std::string& lines) {
  for (const std::string& line : Split(Trim(lines), "\n")) {
    const size_t end = line.find("  ");
    std::vector<std::string> words = Split(line.substr(0, end), " ");
    words.resize(2);
    command->get_option(words[0])->type_name(words[1])->description(Trim(line.substr(end)));
  }
}

}  // namespace

void AddCommands(CLI::App* app, Options* options, int* status) {
  for (const Command& command : kCommands) {
    // A line of what the command does, its options, and what else is to be told of it.
    const std::string help = EmbeddedText(command.name + std::string(".txt"));
    const size_t own = help.find("\n\n");
    const size_t rest = help.find("\n\n", own + 2);
    CLI::App* added = app->add_subcommand(command.name, help.substr(0, own));
    added->footer(Trim(help.substr(rest)));
    command.add_options(added, options);
    DescribeOptions(added, EmbeddedText("boot_options.txt"));
    DescribeOptions(added, help.substr(own, rest - own));
    // A script's unset variable is no option that was left out.
    for (CLI::Option* option : added->get_options()) {
      option->check(
          [](const std::string& value) { return value.empty() ? "nothing is given" : ""; }, "");
    }
    added->callback([run = command.run, options, status] { *status = run(*options); });
  }
}

}  // namespace extprop
