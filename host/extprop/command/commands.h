#pragma once

#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "host/extprop/boot/boot_options.h"
#include "host/extprop/boot/boot_record.h"
#include "host/extprop/check/findings.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// Exit statuses of boot, explain and carriers; bad input is the same everywhere.
constexpr int kSuccess = 0;
constexpr int kFailed = 1;    // the kernel, the system or the library refused
constexpr int kBadInput = 2;  // the command line, or a file that it names

// Exit statuses of the commands that compare and check.
constexpr int kSame = 0;       // or met, or nothing found
constexpr int kDifferent = 1;  // or not met, or something found
constexpr int kTrouble = 2;    // no answer

// What the command line says, as it stands there.
struct Options {
  std::string command_line;  // the whole, as a shell takes it
  BootOptions boot;
  bool json = false;

  // Of boot.
  bool all = false;
  std::string log;  // a name of kLogLevels; empty for what suits the rest
  std::string keep;
  std::string save_props;
  std::string html;  // of carriers too

  // Of carriers; the jobs of expect too.
  bool json_lines = false;
  bool stat = false;
  std::string csv;
  unsigned jobs = 0;  // how many boots at once; 0 for the number of cores

  // Of expect.
  std::vector<std::string> expectation_files;
  bool write = false;

  std::string name;  // of explain: a property, or a glob

  std::string tree_b;  // of diff and carriers

  // Of diff, whose second boot differs by them from the first.
  std::vector<std::string> property_files_b;
  std::vector<std::string> assignments_b;
  std::vector<CarrierChoice> carriers_b;
  std::string against;  // what a phone printed, instead of a second boot

  // Of check.
  FindingSelection findings;
  bool overrides = false;
  std::string fail_on = "error";
  std::string sarif;
};

// The commands. Each returns the exit status or throws a Failure.
int Boot(const Options& options);
int Carriers(const Options& options);
int TwoBuilds(const Options& options, const BootPlan& a);  // carriers of two DIRs
int Check(const Options& options);
int Diff(const Options& options);
int Expect(const Options& options);
int Explain(const Options& options);

// Gives `app` all commands with their options, which parsing stores in `*options`. The command that
// is named then runs and leaves its exit status in `*status`; it may throw a Failure.
void AddCommands(CLI::App* app, Options* options, int* status);

constexpr const char* kHelp = "help";  // the command that tells about the others

// Prints what the last of `words`, which follow the program's name, may become, as the completions
// of the shells ask: each with a tab and its description. Nothing where a file's name is wanted.
void PrintCompletions(const CLI::App& app, const std::vector<std::string>& words);

// Ends a command: main prints the message as Fail does and exits with the status.
struct Failure : std::runtime_error {
  Failure(int exit_status, const std::string& message)
      : std::runtime_error(message), status(exit_status) {}

  int status;
};

// Returns what the result holds; where that is an error, throws it as a Failure of the status.
template <typename T>
T OrFail(int status, Result<T> result) {
  if (!result.ok()) throw Failure(status, result.error().message());
  if constexpr (!std::is_void_v<T>) return std::move(*result);
}

// Prints "extprop: MESSAGE" as one line on the standard error stream and returns `status`.
int Fail(int status, const std::string& message);

// Throws a Failure of the status if a step ended the boot early, for the reason `error`.
void RequireWholeBoot(int status, const std::string& error);

// Ends what is printed on the standard output; throws a Failure of the status where it could not be
// written.
void EndOutput(int status);

// Throws a Failure if the path that was given to an option, such as "--html", is an input of the
// plan or lies in its tree or in what is shown in it, whichever links lead there. An empty path
// lies nowhere.
void RefuseInside(const std::string& option, const std::string& path, const BootPlan& plan);

// Writes the file that was given to an option, none for an empty path; throws a Failure where it
// cannot be written.
void WriteOutput(const std::string& option, const std::string& path, const std::string& text);

}  // namespace extprop
