#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/extprop/boot/boot_options.h"
#include "host/extprop/boot/boot_record.h"
#include "host/extprop/check/finding_selection.h"

namespace extprop {

constexpr int kSuccess = 0;
constexpr int kFailed = 1;    // the kernel, the system or the library refused
constexpr int kBadInput = 2;  // the command line, or a file that it names

// What the command line says, as it stands there.
struct Options {
  std::string command_line;  // the whole, as a shell takes it
  BootOptions boot;
  bool json = false;

  // Of boot.
  bool all = false;
  std::optional<Severity> log;
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

// The commands. Each returns the exit status.
int Boot(const Options& options);
int Carriers(const Options& options);
int Check(const Options& options);
int Diff(const Options& options);
int Expect(const Options& options);
int Explain(const Options& options);

// Returns the ids of all kinds of findings.
std::vector<std::string> FindingIds();

// Returns what tells the kinds of findings, for the end of check's help text.
std::string FindingHelp();

// Prints "extprop: MESSAGE" as one line on the standard error stream and returns `status`.
int Fail(int status, const std::string& message);

// Returns whether the path lies in the directory, whichever links lead there.
bool IsInside(const std::string& path, const std::string& directory);

// Fails with `status` if a step ended the boot, and says which; else returns kSuccess.
int ReportStep(int status, const BootRecord& record);

}  // namespace extprop
