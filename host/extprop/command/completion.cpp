#include <android-base/strings.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <utility>

#include "host/extprop/boot/loaders.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

using android::base::StartsWith;
using Offers = std::vector<std::pair<std::string, std::string>>;  // words with their descriptions

Offers ValuesOf(const CLI::Option& option) {
  Offers values;
  const std::string type = option.get_type_name();
  if (StartsWith(type, "LEVEL")) {
    for (const auto& [name, level] : kLogLevels) values.emplace_back(name, "");
  } else if (StartsWith(type, "ID")) {
    for (const FindingKind& kind : FindingKinds()) values.emplace_back(kind.id, kind.help);
  } else if (StartsWith(type, "SEVERITY")) {
    for (const char* severity : {"error", "warning", "note"}) values.emplace_back(severity, "");
  } else if (type == "KIND=KEY") {
    for (const std::string& kind : CarrierKinds()) values.emplace_back(kind + "=", "");
  } else if (type == "WORD") {
    for (const std::string& word : RequestWords()) values.emplace_back(word, "");
  } else if (StartsWith(type, "LOADER")) {
    for (const Loader& loader : Loaders()) {
      const std::string name = loader.name + std::string(loader.argument == nullptr ? "" : "=");
      if (loader.words.empty()) values.emplace_back(name, loader.help);
      for (const std::string& word : loader.words) values.emplace_back(name + word, loader.help);
    }
  }
  return values;
}

Offers OptionsOf(const CLI::App& command) {
  Offers options;
  for (const CLI::Option* option : command.get_options()) {
    if (option->get_lnames().empty()) continue;
    options.emplace_back("--" + option->get_lnames()[0], option->get_description());
  }
  return options;
}

Offers OffersFor(const CLI::App& app, const std::vector<std::string>& words) {
  Offers commands;
  const CLI::App* named = nullptr;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    commands.emplace_back(command->get_name(), command->get_description());
    if (!words.empty() && command->get_name() == words[0]) named = command;
  }
  if (words.size() < 2 || words[0] == kHelp) return commands;
  if (named == nullptr) return {};
  const CLI::Option* before = named->get_option_no_throw(words[words.size() - 2]);
  if (before != nullptr && before->get_items_expected_max() > 0) return ValuesOf(*before);
  return StartsWith(words.back(), "-") ? OptionsOf(*named) : Offers();
}

}  // namespace

void PrintCompletions(const CLI::App& app, const std::vector<std::string>& words) {
  for (const auto& [word, description] : OffersFor(app, words)) {
    if (words.empty() || StartsWith(word, words.back())) {
      std::cout << word << '\t' << description << '\n';
    }
  }
}

}  // namespace extprop
