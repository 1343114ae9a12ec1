#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "host/extprop/boot.h"
#include "host/extprop/boot_options.h"
#include "host/extprop/commands.h"
#include "host/extprop/compare.h"
#include "host/extprop/property_input.h"
#include "host/extprop/render_text.h"

namespace extprop {

namespace {

using android::base::Error;
using android::base::Result;

constexpr int kSame = 0;
constexpr int kDifferent = 1;
constexpr int kTrouble = 2;

struct Options {
  BootOptions boot;  // of both sides; the tree is the first one's
  std::string tree_b;
  std::vector<std::string> property_files_b;
  std::vector<std::string> assignments_b;
  std::string against;
  bool json = false;
};

constexpr const char* kExamples = R"(
Exit status: 0 the same, 1 different, 2 trouble.

Examples:
  extprop diff image next-image --props getprop.txt
  extprop diff image --set-b ro.boot.vmcarrier=SOUTHNET
  extprop diff image --props boot.prop --against getprop.txt)";

Result<BootRecord> Boot(const BootOptions& options) {
  Result<BootPlan> plan = MakePlan(options);
  if (!plan.ok()) return plan.error();
  plan->attribute = true;
  Result<BootRecord> record = RunBoot(*plan);
  if (!record.ok()) return record.error();
  for (const Step& step : record->steps) {
    if (!step.error.empty())
      return Error() << options.tree << ": " << step.name << ": " << step.error;
  }
  return record;
}

void Append(const std::vector<std::string>& from, std::vector<std::string>* to) {
  to->insert(to->end(), from.begin(), from.end());
}

// What a phone printed is the end of a boot of which nothing else is known.
Result<BootRecord> OtherSide(const Options& options) {
  if (!options.against.empty()) {
    BootRecord phone;
    Result<void> read = ReadProperties(options.against, &phone.properties);
    if (!read.ok()) return read.error();
    return phone;
  }
  BootOptions other = options.boot;
  if (!options.tree_b.empty()) other.tree = options.tree_b;
  Append(options.property_files_b, &other.property_files);
  Append(options.assignments_b, &other.assignments);
  return Boot(other);
}

void PrintSide(const char* mark, const char* colour, const Ending& ending) {
  const bool coloured = ColourWanted();
  std::cout << (coloured ? colour : "") << mark
            << (ending.value.empty() ? "unset" : "[" + Visible(ending.value) + "]")
            << (coloured ? "\033[0m" : "");
  if (!ending.place.empty()) std::cout << "  " << Visible(ending.place);
  if (!ending.loader.empty()) std::cout << " (" << Visible(ending.loader) << ')';
  std::cout << '\n';
}

int Diff(const Options& options) {
  const bool other_boot = !options.tree_b.empty() || !options.property_files_b.empty() ||
                          !options.assignments_b.empty();
  const bool phone = !options.against.empty();
  if (other_boot == phone) {
    return Fail(kTrouble, "diff needs a second DIR, --set-b or --props-b, or else --against");
  }
  Result<BootRecord> a = Boot(options.boot);
  if (!a.ok()) return Fail(kTrouble, a.error().message());
  Result<BootRecord> b = OtherSide(options);
  if (!b.ok()) return Fail(kTrouble, b.error().message());

  std::vector<Difference> differences = Compare(*a, *b);
  // A phone has many properties that are none of the library's business.
  const auto kept = std::remove_if(differences.begin(), differences.end(), [&](const auto& found) {
    return phone && found.a.place.empty();
  });
  const auto left_out = differences.end() - kept;
  differences.erase(kept, differences.end());
  if (options.json) {
    std::cout << JsonText({{"differences", ToJson(differences)}, {"left_out", left_out}}) << '\n';
  } else {
    for (const auto& [name, ending_a, ending_b] : differences) {
      std::cout << '[' << Visible(name) << "]\n";
      PrintSide("  - ", "\033[31m", ending_a);
      PrintSide("  + ", "\033[32m", ending_b);
    }
    if (phone) std::cout << "only on the phone: " << left_out << " that nothing here sets\n";
  }
  if (!std::cout.flush()) return Fail(kTrouble, "cannot write the standard output");
  return differences.empty() ? kSame : kDifferent;
}

}  // namespace

void AddDiffCommand(CLI::App* app, std::function<int()>* chosen) {
  auto options = std::make_shared<Options>();
  CLI::App* command = app->add_subcommand(
      "diff", "Compare two boots, or a boot with a phone, and show what causes each difference.");
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
  command->footer(StepHelp() + kExamples);
  command->callback([options, chosen] { *chosen = [options] { return Diff(*options); }; });
}

}  // namespace extprop
