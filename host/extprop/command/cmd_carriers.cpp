#include <iostream>
#include <sstream>

#include "host/extprop/carriers/carrier_boots.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/pages.h"
#include "host/extprop/render/terminal.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

namespace {

std::string Head(const CarrierKey& key) {
  std::string head = key.Choice().Title();
  if (!key.target.empty() && key.target != key.name) head += " -> " + key.target;
  if (!key.first.empty()) head += " -> first " + key.first;
  if (!key.never.empty()) head += ": " + key.never;
  return Visible(head);
}

void PrintKey(const CarrierKey& key, const std::vector<Difference>& differences, bool stat) {
  const bool count = stat && key.never.empty();
  const std::string end = count ? ": " + std::to_string(differences.size()) : "";
  Print(Coloured(kBold, Head(key) + end) + "\n");
  if (stat) return;
  for (const std::string& source : key.sources) Print("  " + Visible(source) + "\n");
  if (differences.empty() && key.never.empty()) Print("    as by default\n");
  for (const auto& [name, by_default, with_key] : differences) {
    Print("    [" + Visible(name) + "]: " + Shown(with_key.value) + "  default " +
          Shown(by_default.value) + (with_key.place.empty() ? "" : "  ") + Visible(with_key.place) +
          "\n");
  }
}

// Prints one key after the other, each as soon as it is known.
int OneBuild(const Options& options, const BootPlan& plan) {
  int status = kSuccess;
  const std::string begin = "{\"carriers\": [";
  std::string before = begin + "\n";  // the next object
  const auto print = [&](const Endings& by_default, const CarrierKey& key,
                         const CarrierOutcome& outcome) {
    if (!outcome.error.empty()) {
      status = Fail(kFailed, Visible(key.Choice().Title()) + ": " + outcome.error);
      return;
    }
    std::vector<Difference> differences;
    for (const auto& [name, ending] : outcome.endings) {
      differences.push_back({name, ValueIn(by_default, name), ending});
    }
    if (options.json || options.json_lines) {
      json object = ToJson(key);
      object["differences"] = differences;
      if (options.json) std::cout << std::exchange(before, ",\n");
      std::cout << JsonText(object, -1) << (options.json ? "" : "\n");
    } else {
      PrintKey(key, differences, options.stat);
    }
    std::cout.flush();
  };
  OrFail(kFailed, BootWithKeys(plan, options.boot.carriers, options.jobs, print));
  if (options.json) std::cout << (before == ",\n" ? "" : begin) << "\n]}\n";
  EndOutput(kFailed);
  return status;
}

// The page and the spreadsheet, in place of any text.
int WriteTables(const Options& options, const BootPlan& plan) {
  RefuseInside("--html", options.html, plan);
  RefuseInside("--csv", options.csv, plan);
  const CarrierTable table =
      OrFail(kFailed, FillCarrierTable(plan, options.boot.carriers, options.jobs, true));
  if (!options.html.empty()) {
    WriteOutput("--html", options.html,
                RenderCarriersHtml(options.command_line, plan.device.directory, table));
  }
  std::ostringstream csv;
  PrintCarriersCsv(table, csv);
  WriteOutput("--csv", options.csv, csv.str());
  return kSuccess;
}

}  // namespace

int Carriers(const Options& options) {
  BootOptions without_carrier = options.boot;
  without_carrier.carriers.clear();
  const BootPlan plan = OrFail(kBadInput, MakePlan(without_carrier));
  if (!options.html.empty() || !options.csv.empty()) return WriteTables(options, plan);
  return options.tree_b.empty() ? OneBuild(options, plan) : TwoBuilds(options, plan);
}

}  // namespace extprop
