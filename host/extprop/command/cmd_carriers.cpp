#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "host/extprop/carriers/carrier_boots.h"
#include "host/extprop/carriers/carrier_keys.h"
#include "host/extprop/carriers/carrier_table.h"
#include "host/extprop/carriers/two_builds.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/progress.h"
#include "host/extprop/render/render_carriers.h"
#include "host/extprop/render/terminal.h"

namespace extprop {

namespace {

using android::base::Result;
using nlohmann::json;

constexpr int kSame = 0;
constexpr int kDifferent = 1;
constexpr int kTrouble = 2;

std::string Shown(const std::string& value) {
  return value.empty() ? "unset" : "[" + Visible(value) + "]";
}

std::string Named(const CarrierChoice& key) {
  return key.kind.empty() ? "default" : key.kind + " " + Visible(key.key);
}

void PrintBold(const std::string& text) {
  std::cout << (ColourWanted() ? "\033[1m" : "") << text << (ColourWanted() ? "\033[0m" : "")
            << '\n';
}

std::string OneLine(const json& object) {
  return object.dump(-1, ' ', false, json::error_handler_t::replace);
}

// One key after the other, of one build.
class KeyPrinter {
 public:
  KeyPrinter(const Options& options, const Endings& by_default)
      : options_(options), by_default_(by_default) {}

  void Begin() const {
    if (options_.json) std::cout << "{\"carriers\": [";
  }
  void End() const {
    if (options_.json) std::cout << "\n]}\n";
  }

  void Print(const CarrierKey& key, const CarrierOutcome& outcome) {
    std::vector<Difference> differences;
    for (const auto& [name, ending] : outcome.endings) {
      const auto before = by_default_.find(name);
      differences.push_back(
          {name, before == by_default_.end() ? Ending() : before->second, ending});
    }
    if (options_.json || options_.json_lines) return PrintJson(key, differences);
    PrintHead(key, differences.size());
    if (!options_.stat) PrintText(key, differences);
  }

 private:
  void PrintJson(const CarrierKey& key, const std::vector<Difference>& differences) {
    json object = ToJson(key);
    object["differences"] = ToJson(differences);
    if (options_.json) std::cout << (printed_++ == 0 ? "\n" : ",\n");
    std::cout << OneLine(object) << (options_.json ? "" : "\n");
  }

  void PrintHead(const CarrierKey& key, size_t differences) const {
    std::string head = Named({key.kind, key.name});
    if (!key.target.empty() && key.target != key.name) head += " -> " + Visible(key.target);
    if (!key.first.empty()) head += " -> first " + Visible(key.first);
    if (!key.never.empty()) {
      head += ": " + key.never;
    } else if (options_.stat) {
      head += ": " + std::to_string(differences);
    }
    PrintBold(head);
  }

  static void PrintText(const CarrierKey& key, const std::vector<Difference>& differences) {
    for (const std::string& source : key.sources) std::cout << "  " << Visible(source) << '\n';
    if (differences.empty() && key.never.empty()) std::cout << "    as by default\n";
    for (const auto& [name, by_default, with_key] : differences) {
      std::cout << "    [" << Visible(name) << "]: " << Shown(with_key.value) << "  default "
                << Shown(by_default.value) << (with_key.place.empty() ? "" : "  ")
                << Visible(with_key.place) << '\n';
    }
  }

  const Options& options_;
  const Endings& by_default_;
  size_t printed_ = 0;
};

int OneBuild(const Options& options, const BootPlan& plan) {
  Result<std::vector<CarrierKey>> keys = FindCarrierKeys(plan);
  if (!keys.ok()) return Fail(kFailed, keys.error().message());
  Result<CarrierBoots> boots = BootByDefault(plan, options.boot.carriers);
  if (!boots.ok()) return Fail(kFailed, boots.error().message());

  std::vector<CarrierKey> listed;
  std::vector<std::vector<CarrierChoice>> choices;
  for (const CarrierKey& key : *keys) {
    if (!key.listed) continue;
    listed.push_back(key);
    if (key.never.empty()) choices.push_back({{key.kind, key.name}});
  }
  int status = kSuccess;
  Progress progress;
  KeyPrinter printer(options, boots->by_default);
  printer.Begin();
  auto next = listed.begin();
  const auto print_impossible = [&] {
    while (next != listed.end() && !next->never.empty()) printer.Print(*next++, {});
  };
  Result<void> run =
      BootEach(*boots, choices, options.jobs, [&](size_t index, const CarrierOutcome& outcome) {
        progress.Clear();
        print_impossible();
        if (outcome.error.empty()) {
          printer.Print(*next, outcome);
        } else {
          status = Fail(kFailed, Named({next->kind, next->name}) + ": " + outcome.error);
        }
        ++next;
        std::cout.flush();
        if (next != listed.end()) {
          progress.Show(index + 1, choices.size(), Named({next->kind, next->name}));
        }
      });
  if (!run.ok()) return Fail(kFailed, run.error().message());
  print_impossible();
  printer.End();
  return std::cout.flush() ? status : Fail(kFailed, "cannot write the standard output");
}

void PrintSide(const char* mark, const BuildSide& side) {
  std::cout << mark << Shown(side.value);
  if (!side.places.empty()) std::cout << "  " << Visible(*side.places.begin());
  if (side.places.size() > 1) std::cout << " and " << side.places.size() - 1 << " more";
  std::cout << '\n';
}

void PrintDifferences(const std::string& head, const BuildDifferences& differences, bool stat) {
  PrintBold(head + ": " + std::to_string(differences.size()));
  for (const auto& [name, difference] : differences) {
    if (stat) continue;
    std::cout << "  [" << Visible(name) << "]\n";
    PrintSide("    - ", difference.a);
    PrintSide("    + ", difference.b);
  }
}

std::string Listed(const std::vector<CarrierChoice>& keys) {
  std::string list;
  for (const CarrierChoice& key : keys) list += (list.empty() ? "" : ", ") + Named(key);
  return list;
}

void PrintComparison(const BuildComparison& comparison, bool stat) {
  if (!comparison.everywhere.empty()) {
    PrintDifferences("every carrier", comparison.everywhere, stat);
  }
  size_t different = 0;
  for (const BuildGroup& group : comparison.groups) {
    PrintDifferences(Listed(group.keys), group.differences, stat);
    different += group.keys.size() - (group.keys.front().kind.empty() ? 1 : 0);
  }
  if (!comparison.only_a.empty()) PrintBold("only in A: " + Listed(comparison.only_a));
  if (!comparison.only_b.empty()) PrintBold("only in B: " + Listed(comparison.only_b));
  std::cout << "keys in both builds: " << comparison.keys << ", with differences: " << different
            << " in " << comparison.groups.size()
            << " groups; only in A: " << comparison.only_a.size()
            << ", only in B: " << comparison.only_b.size() << '\n';
}

int TwoBuilds(const Options& options, const BootPlan& a) {
  BootOptions other = options.boot;
  other.tree = options.tree_b;
  other.carriers.clear();
  Result<BootPlan> b = MakePlan(other);
  if (!b.ok()) return Fail(kTrouble, b.error().message());
  Progress progress;
  Result<BuildComparison> compared =
      CompareBuilds(a, *b, options.boot.carriers, options.jobs,
                    [&](size_t boots, size_t count, const CarrierChoice& key) {
                      progress.Show(boots, count, Named(key));
                    });
  progress.Clear();
  if (!compared.ok()) return Fail(kTrouble, compared.error().message());
  if (options.json || options.json_lines) {
    std::cout << (options.json ? JsonText(ToJson(*compared)) : OneLine(ToJson(*compared))) << '\n';
  } else {
    PrintComparison(*compared, options.stat);
  }
  if (!std::cout.flush()) return Fail(kTrouble, "cannot write the standard output");
  for (const std::string& error : compared->errors) Fail(kTrouble, error);
  if (!compared->errors.empty()) return kTrouble;
  const bool same = compared->everywhere.empty() && compared->groups.empty() &&
                    compared->only_a.empty() && compared->only_b.empty();
  return same ? kSame : kDifferent;
}

// The page and the spreadsheet, in place of any text.
int WriteTables(const Options& options, const BootPlan& plan) {
  for (const auto& [option, path] :
       {std::pair("--html ", options.html), std::pair("--csv ", options.csv)}) {
    if (path.empty() || !IsInside(path, plan.tree)) continue;
    return Fail(kBadInput, option + path + ": lies in " + plan.tree);
  }
  Progress progress;
  Result<CarrierTable> table =
      FillCarrierTable(plan, options.boot.carriers, options.jobs,
                       [&](size_t done, size_t count, const CarrierChoice& key) {
                         progress.Show(done, count, Named(key));
                       });
  progress.Clear();
  if (!table.ok()) return Fail(kFailed, table.error().message());
  const auto write = [](const std::string& path, const auto& print) {
    if (path.empty()) return true;
    std::ofstream out(path, std::ios::binary);
    print(out);
    return static_cast<bool>(out.flush());
  };
  if (!write(options.html, [&](auto& out) { out << RenderCarriersHtml(plan.tree, *table); })) {
    return Fail(kBadInput, "--html " + options.html + ": cannot be written");
  }
  if (!write(options.csv, [&](auto& out) { PrintCarriersCsv(*table, out); })) {
    return Fail(kBadInput, "--csv " + options.csv + ": cannot be written");
  }
  return kSuccess;
}

}  // namespace

int Carriers(const Options& options) {
  BootOptions without_carrier = options.boot;
  without_carrier.carriers.clear();
  Result<BootPlan> plan = MakePlan(without_carrier);
  if (!plan.ok()) return Fail(kBadInput, plan.error().message());
  if (!options.html.empty() || !options.csv.empty()) return WriteTables(options, *plan);
  return options.tree_b.empty() ? OneBuild(options, *plan) : TwoBuilds(options, *plan);
}

}  // namespace extprop
