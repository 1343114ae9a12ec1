#include <android-base/strings.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "host/extprop/command/commands.h"

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

void RefuseInside(const std::string& option, const std::string& path, const std::string& tree) {
  if (path.empty()) return;
  const std::string inner = fs::weakly_canonical(path).string() + "/";
  const std::string outer = fs::canonical(tree).string() + "/";
  if (outer != "//" && inner.compare(0, outer.size(), outer) != 0) return;
  throw Failure(kBadInput, option + " " + path + ": lies in " + tree);
}

void WriteOutput(const std::string& option, const std::string& path, const std::string& text) {
  if (path.empty()) return;
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw Failure(kBadInput, option + " " + path + ": " + strerror(errno));
}

namespace {

// Quotes what a shell would not take as it stands.
std::string Quoted(const std::string& word) {
  constexpr const char* kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./=:,+@%";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
  return "'" + android::base::StringReplace(word, "'", "'\\''", true) + "'";
}

int Help(const CLI::App& app, const std::vector<std::string>& names) {
  try {
    std::cout << (names.empty() ? app.help() : app.get_subcommand(names[0])->help("extprop"));
  } catch (const CLI::OptionNotFound&) {
    return Fail(kBadInput, "help " + names[0] + ": no such command");
  }
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
  for (const std::string& word : words) options.command_line += " " + Quoted(word);
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
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked) {
    return app.exit(asked);
  } catch (const CLI::ParseError& error) {
    return Fail(kBadInput, error.what());
  }
  return status;
}

}  // namespace

}  // namespace extprop

int main(int argc, char** argv) {
  try {
    return extprop::Run(argc, argv);
  } catch (const extprop::Failure& failure) {
    return extprop::Fail(failure.status, failure.what());
  } catch (const std::exception& error) {
    return extprop::Fail(extprop::kFailed, error.what());
  }
}
