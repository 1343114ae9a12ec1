#include <android-base/format.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <set>
#include <tuple>

#include "host/extprop/carriers/carrier_boots.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/terminal.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// One side of a difference between two builds.
struct BuildSide {
  std::string value;             // empty where the property is unset
  std::set<std::string> places;  // where it is from, in any of the boots
};

struct BuildSides {
  BuildSide a;
  BuildSide b;
};

using BuildDifferences = std::map<std::string, BuildSides>;  // by property

// Keys with which the builds differ in the same way.
struct BuildGroup {
  std::vector<CarrierChoice> keys;
  BuildDifferences differences;
};

struct BuildComparison {
  BuildDifferences everywhere;     // what differs in the same way in every boot
  std::vector<BuildGroup> groups;  // what differs besides, in the order of their first keys
  size_t keys = 0;                 // how many both builds know
  std::vector<CarrierChoice> only_a, only_b;
  std::vector<std::string> errors;  // of boots that could not be made or completed
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CarrierChoice, kind, key)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BuildSide, value, places)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BuildSides, a, b)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BuildGroup, keys, differences)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BuildComparison, everywhere, groups, keys, only_a, only_b,
                                   errors)

namespace {

// How the boots of one build end.
struct Build {
  std::string tree;
  Endings by_default;
  std::map<CarrierChoice, CarrierOutcome> outcomes;  // by key; the empty one stands for none
};

Build BootBuild(const BootPlan& plan, const Options& options) {
  Build build = {plan.device.directory, {}, {}};
  build.outcomes[{}] = {};
  const auto add = [&](const Endings&, const CarrierKey& key, const CarrierOutcome& outcome) {
    if (key.never.empty()) build.outcomes[key.Choice()] = outcome;
  };
  // A value that is as by default may have another place all the same.
  Result<Endings> by_default = BootWithKeys(plan, options.boot.carriers, options.jobs, add, true);
  if (!by_default.ok())
    throw Failure(kTrouble, plan.device.directory + ": " + by_default.error().message());
  build.by_default = std::move(*by_default);
  return build;
}

BuildSide SideOf(const Ending& ending) {
  return {ending.value, ending.place.empty() ? std::set<std::string>() : std::set{ending.place}};
}

// `names` are those that differ by default.
BuildDifferences DifferencesOf(const Build& a, const CarrierOutcome& in_a, const Build& b,
                               const CarrierOutcome& in_b, std::set<std::string> names) {
  for (const Endings* endings : {&in_a.endings, &in_b.endings}) {
    for (const auto& [name, ending] : *endings) names.insert(name);
  }
  BuildDifferences differences;
  for (const std::string& name : names) {
    const Ending& end_a = EndingOf(a.by_default, in_a, name);
    const Ending& end_b = EndingOf(b.by_default, in_b, name);
    if (end_a.value == end_b.value) continue;
    differences[name] = {SideOf(end_a), SideOf(end_b)};
  }
  return differences;
}

// Adds the difference, or where it is from.
void Add(const BuildDifferences::value_type& found, BuildDifferences* differences) {
  const auto& [name, sides] = found;
  auto& [a, b] = differences->try_emplace(name, sides).first->second;
  a.places.insert(sides.a.places.begin(), sides.a.places.end());
  b.places.insert(sides.b.places.begin(), sides.b.places.end());
}

// What is the same of the differences of two boots: the property and its two values.
std::tuple<std::string, std::string, std::string> ValuesOf(
    const BuildDifferences::value_type& found) {
  const auto& [name, sides] = found;
  return {name, sides.a.value, sides.b.value};
}

bool HaveSameValues(const BuildDifferences& a, const BuildDifferences& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const auto& x, const auto& y) { return ValuesOf(x) == ValuesOf(y); });
}

// Brings together what is in every group, and then the groups that differ in the same way.
void Gather(const std::vector<BuildGroup>& found, BuildComparison* comparison) {
  std::map<decltype(ValuesOf({})), size_t> counts;
  for (const BuildGroup& each : found) {
    for (const auto& difference : each.differences) ++counts[ValuesOf(difference)];
  }
  auto& groups = comparison->groups;
  for (const BuildGroup& each : found) {
    BuildDifferences others;
    for (const auto& difference : each.differences) {
      const bool in_all = counts.at(ValuesOf(difference)) == found.size();
      Add(difference, in_all ? &comparison->everywhere : &others);
    }
    if (others.empty()) continue;
    auto group = std::find_if(groups.begin(), groups.end(), [&](const BuildGroup& other) {
      return HaveSameValues(other.differences, others);
    });
    if (group == groups.end()) group = groups.insert(group, BuildGroup());
    group->keys.push_back(each.keys.front());
    for (const auto& difference : others) Add(difference, &group->differences);
  }
}

BuildComparison CompareBuilds(const Build& a, const Build& b) {
  BuildComparison comparison;
  std::set<std::string> by_default;
  for (const Difference& found : Compare(a.by_default, b.by_default)) by_default.insert(found.name);
  std::vector<BuildGroup> groups;  // one for each key
  for (const auto& [key, in_a] : a.outcomes) {
    const auto in_b = b.outcomes.find(key);
    const std::string named = key.Title() + ": ";
    if (in_b == b.outcomes.end()) {
      comparison.only_a.push_back(key);
    } else if (!in_a.error.empty()) {
      comparison.errors.push_back(named + a.tree + ": " + in_a.error);
    } else if (!in_b->second.error.empty()) {
      comparison.errors.push_back(named + b.tree + ": " + in_b->second.error);
    } else {
      groups.push_back({{key}, DifferencesOf(a, in_a, b, in_b->second, by_default)});
    }
  }
  for (const auto& [key, in_b] : b.outcomes) {
    if (a.outcomes.count(key) == 0) comparison.only_b.push_back(key);
  }
  comparison.keys = a.outcomes.size() - comparison.only_a.size() - 1;
  Gather(groups, &comparison);
  return comparison;
}

void PrintSide(const char* mark, const BuildSide& side) {
  const auto& [value, places] = side;
  std::string text = mark + Shown(value);
  if (!places.empty()) text += "  " + Visible(*places.begin());
  if (places.size() > 1) text += " and " + std::to_string(places.size() - 1) + " more";
  Print(text + "\n");
}

void PrintDifferences(const std::string& head, const BuildDifferences& differences, bool stat) {
  Print(Coloured(kBold, head + ": " + std::to_string(differences.size())) + "\n");
  if (stat) return;
  for (const auto& [name, sides] : differences) {
    Print("  [" + Visible(name) + "]\n");
    PrintSide("    - ", sides.a);
    PrintSide("    + ", sides.b);
  }
}

void PrintComparison(const BuildComparison& comparison, bool stat) {
  const auto& [everywhere, groups, keys, only_a, only_b, errors] = comparison;
  if (!everywhere.empty()) PrintDifferences("every carrier", everywhere, stat);
  size_t different = 0;
  for (const BuildGroup& group : groups) {
    PrintDifferences(Visible(Titles(group.keys, ", ")), group.differences, stat);
    different += group.keys.size() - (group.keys.front().kind.empty() ? 1 : 0);
  }
  if (!only_a.empty()) Print(Coloured(kBold, "only in A: " + Visible(Titles(only_a, ", "))) + "\n");
  if (!only_b.empty()) Print(Coloured(kBold, "only in B: " + Visible(Titles(only_b, ", "))) + "\n");
  Print(
      fmt::format("keys in both builds: {}, with differences: {} in {}; only in A: {}, only in B: "
                  "{}\n",
                  keys, different, Count(groups.size(), "group"), only_a.size(), only_b.size()));
}

}  // namespace

int TwoBuilds(const Options& options, const BootPlan& a) {
  BootOptions other = options.boot;
  other.tree = options.tree_b;
  other.carriers.clear();
  const BootPlan b = OrFail(kTrouble, MakePlan(other));
  const BuildComparison compared = CompareBuilds(BootBuild(a, options), BootBuild(b, options));
  if (options.json || options.json_lines) {
    const json all = compared;
    std::cout << JsonText(all, options.json ? 2 : -1) << '\n';
  } else {
    PrintComparison(compared, options.stat);
  }
  EndOutput(kTrouble);
  for (const std::string& error : compared.errors) Fail(kTrouble, error);
  if (!compared.errors.empty()) return kTrouble;
  const bool same = compared.everywhere.empty() && compared.groups.empty() &&
                    compared.only_a.empty() && compared.only_b.empty();
  return same ? kSame : kDifferent;
}

}  // namespace extprop
