#include <android-base/format.h>

#include <algorithm>
#include <iostream>

#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/property_input.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/explain/compare.h"
#include "host/extprop/render/render_text.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

namespace {

Endings BootSide(const BootOptions& options) {
  BootPlan plan = OrFail(kTrouble, MakePlan(options));
  plan.lines = true;
  plan.title = "the boot of " + plan.device.directory;
  const json told = OrFail(kTrouble, RunBoot(plan, [&](const BootRecord& record) -> json {
                             WarnOfUnreadable(record);
                             const std::string error = ErrorOf(record);
                             return {{"endings", EndingsOf(record)},
                                     {"error", error.empty() ? "" : options.tree + ": " + error}};
                           }));
  RequireWholeBoot(kTrouble, told["error"]);
  return told["endings"];
}

void Append(const std::vector<std::string>& from, std::vector<std::string>* to) {
  to->insert(to->end(), from.begin(), from.end());
}

// What a phone printed is the end of a boot of which nothing else is known.
Endings OtherSide(const Options& options) {
  if (!options.against.empty()) {
    BootRecord phone;
    OrFail(kTrouble, ReadPhone(options.against, &phone.properties));
    return EndingsOf(phone);
  }
  BootOptions other = options.boot;
  if (!options.tree_b.empty()) other.tree = options.tree_b;
  Append(options.property_files_b, &other.property_files);
  Append(options.assignments_b, &other.assignments);
  other.carriers = Override(other.carriers, options.carriers_b);
  return BootSide(other);
}

void PrintSide(const char* mark, const char* colour, const Ending& ending) {
  std::string text = Coloured(colour, mark + Shown(ending.value));
  if (!ending.place.empty()) text += "  " + Visible(ending.place);
  if (!ending.loader.empty()) text += " (" + Visible(ending.loader) + ")";
  Print(text + "\n");
  if (!ending.note.empty()) Print("      " + Visible(ending.note) + "\n");
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
  const Endings a = BootSide(options.boot);
  std::vector<Difference> differences = Compare(a, OtherSide(options));
  // A phone has many properties that are none of the library's business.
  const auto kept = std::remove_if(differences.begin(), differences.end(), [&](const auto& found) {
    return phone && found.a.place.empty() && found.a.note.empty();
  });
  const auto left_out = differences.end() - kept;
  differences.erase(kept, differences.end());
  if (options.json) {
    std::cout << JsonText({{"differences", differences}, {"left_out", left_out}}) << '\n';
  } else {
    for (const auto& [name, ending_a, ending_b] : differences) {
      Print("[" + Visible(name) + "]\n");
      PrintSide("  - ", kRed, ending_a);
      PrintSide("  + ", kGreen, ending_b);
    }
    if (phone) Print(fmt::format("only on the phone: {} that nothing here sets\n", left_out));
  }
  EndOutput(kTrouble);
  return differences.empty() ? kSame : kDifferent;
}

}  // namespace extprop
