#include <android-base/strings.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "host/extprop/command/commands.h"
#include "host/extprop/render/terminal.h"

namespace extprop {

namespace fs = std::filesystem;

int Fail(int status, const std::string& message) {
  std::string line = message;
  std::replace(line.begin(), line.end(), '\n', ' ');
  fprintf(stderr, "extprop: %s\n", line.c_str());
  return status;
}

void RequireWholeBoot(int status, const std::string& error) {
  if (!error.empty()) throw Failure(status, error);
}

void EndOutput(int status) {
  if (!std::cout.flush()) throw Failure(status, "cannot write the standard output");
}

void RefuseInside(const std::string& option, const std::string& path, const BootPlan& plan) {
  if (path.empty()) return;
  fs::path place = path;
  std::error_code ignored;
  // A link that leads to nothing yet is followed too.
  for (int links = 0; links < 40 && fs::is_symlink(place, ignored); ++links) {
    place = place.parent_path() / fs::read_symlink(place, ignored);
  }
  std::vector<std::string> shown = {plan.device.directory};
  for (const sandbox::Layer& layer : plan.device.root.layers) {
    if (!fs::is_symlink(layer.source, ignored)) shown.push_back(layer.source);
  }
  const std::string given = option + " " + path;
  for (const std::string& input : plan.inputs) {
    if (fs::equivalent(place, input, ignored))
      throw Failure(kBadInput, given + ": is an input too");
  }
  // What is mounted has a second path, hence by identity.
  std::error_code error;
  fs::path above = fs::weakly_canonical(place, error);
  if (error) throw Failure(kBadInput, given + ": " + error.message());
  for (; !above.empty(); above = above.parent_path()) {
    for (const std::string& source : shown) {
      const std::string message = given + ": lies in ";
      if (fs::equivalent(above, source, ignored)) throw Failure(kBadInput, message + source);
    }
    if (above == above.root_path()) break;
  }
}

void WriteOutput(const std::string& option, const std::string& path, const std::string& text) {
  if (path.empty()) return;
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw Failure(kBadInput, option + " " + path + ": " + strerror(errno));
}

namespace {

// Returns the command of that name, null where there is none.
const CLI::App* FindCommand(const CLI::App& app, const std::string& name) {
  const auto has_name = [&](const CLI::App* command) { return command->get_name() == name; };
  const std::vector<const CLI::App*> named = app.get_subcommands(has_name);
  return named.empty() ? nullptr : named[0];
}

int Help(const CLI::App& app, const std::vector<std::string>& names) {
  if (names.size() > 1) return Fail(kBadInput, "help takes one command");
  const CLI::App* command = names.empty() ? nullptr : FindCommand(app, names[0]);
  if (!names.empty() && command == nullptr) {
    return Fail(kBadInput, "help " + names[0] + ": no such command");
  }
  Print(command == nullptr ? app.help() : command->help("extprop"));
  EndOutput(kFailed);
  return kSuccess;
}

int Run(int argc, char** argv) {
  CLI::App app("See what the extension property library makes of a device's files.", "extprop");
  app.require_subcommand(1);
  app.set_version_flag("--version", "extprop " EXTPROP_VERSION, "Print the version");
  app.footer(
      "extprop help COMMAND tells all about a command, extprop help boot about booting too.");
  const std::vector<std::string> words(argv + 1, argv + argc);
  Options options;
  options.command_line = "extprop";
  for (const std::string& word : words) options.command_line += " " + ShellWord(word);
  options.boot.tree = ".";
  int status = kSuccess;
  AddCommands(&app, &options, &status);
  app.add_subcommand(kHelp, "Tell about a command.");
  // Neither takes options.
  const std::string first = words.empty() ? "" : words[0];
  if (first == kHelp) return Help(app, {words.begin() + 1, words.end()});
  if (first == "complete") {
    PrintCompletions(app, {words.begin() + 1, words.end()});
    return kSuccess;
  }
  if (!first.empty() && first[0] != '-' && FindCommand(app, first) == nullptr) {
    return Fail(kBadInput, first + ": no such command");
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    app.exit(asked);
    EndOutput(kFailed);
    return kSuccess;
  } catch (const CLI::ParseError& error) {
    return Fail(kBadInput, error.what());
  }
  return status;
}

}  // namespace

}  // namespace extprop

int main(int argc, char** argv) {
  setlocale(LC_CTYPE, "C.UTF-8");
  try {
    return extprop::Run(argc, argv);
  } catch (const extprop::Failure& failure) {
    return extprop::Fail(failure.status, failure.what());
  } catch (const std::exception& error) {
    return extprop::Fail(extprop::kFailed, error.what());
  }
}
