#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/property_input.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/explain/compare.h"
#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

using android::base::Error;
using android::base::Result;

constexpr int kSame = 0;
constexpr int kDifferent = 1;
constexpr int kTrouble = 2;

Result<BootRecord> BootSide(const BootOptions& options) {
  Result<BootPlan> plan = MakePlan(options);
  if (!plan.ok()) return plan.error();
  plan->lines = true;
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
    Result<void> read = ReadPhone(options.against, &phone.properties);
    if (!read.ok()) return read.error();
    return phone;
  }
  BootOptions other = options.boot;
  if (!options.tree_b.empty()) other.tree = options.tree_b;
  Append(options.property_files_b, &other.property_files);
  Append(options.assignments_b, &other.assignments);
  other.carriers = Override(other.carriers, options.carriers_b);
  return BootSide(other);
}

void PrintSide(const char* mark, const char* colour, const Ending& ending) {
  const bool coloured = ColourWanted();
  std::cout << (coloured ? colour : "") << mark
            << (ending.value.empty() ? "unset" : "[" + Visible(ending.value) + "]")
            << (coloured ? "\033[0m" : "");
  if (!ending.place.empty()) std::cout << "  " << Visible(ending.place);
  if (!ending.loader.empty()) std::cout << " (" << Visible(ending.loader) << ')';
  std::cout << '\n';
  if (!ending.note.empty()) std::cout << "      " << Visible(ending.note) << '\n';
}

}  // namespace

int Diff(const Options& options) {
  const bool other_boot = !options.tree_b.empty() || !options.property_files_b.empty() ||
                          !options.assignments_b.empty() || !options.carriers_b.empty();
  const bool phone = !options.against.empty();
  if (other_boot == phone) {
    return Fail(kTrouble,
                "diff needs a second DIR, --set-b, --props-b or --carrier-b, or else --against");
  }
  Result<BootRecord> a = BootSide(options.boot);
  if (!a.ok()) return Fail(kTrouble, a.error().message());
  Result<BootRecord> b = OtherSide(options);
  if (!b.ok()) return Fail(kTrouble, b.error().message());

  std::vector<Difference> differences = Compare(*a, *b);
  // A phone has many properties that are none of the library's business.
  const auto kept = std::remove_if(differences.begin(), differences.end(), [&](const auto& found) {
    return phone && found.a.place.empty() && found.a.note.empty();
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

}  // namespace extprop
