#include <algorithm>
#include <iostream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <tuple>

#include "host/extprop/carriers/carrier_boots.h"
#include "host/extprop/carriers/carrier_keys.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/terminal.h"

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

using android::base::Result;
using nlohmann::json;
using Choices = std::vector<CarrierChoice>;

std::set<CarrierChoice> KeysOf(const BootPlan& plan) {
  std::set<CarrierChoice> choices;
  for (const CarrierKey& key : OrFail(kTrouble, FindCarrierKeys(plan))) {
    if (key.listed && key.never.empty()) choices.insert(key.Choice());
  }
  return choices;
}

CarrierBoots BootBuild(const BootPlan& plan, const Choices& base) {
  Result<CarrierBoots> boots = BootByDefault(plan, base);
  if (!boots.ok()) throw Failure(kTrouble, plan.tree + ": " + boots.error().message());
  return std::move(*boots);
}

BuildSide SideOf(const Ending& ending) {
  return {ending.value, ending.place.empty() ? std::set<std::string>() : std::set{ending.place}};
}

// Boots with each of `keys` and returns a group of its own for each whose boots could be completed.
std::vector<BuildGroup> BootBoth(CarrierBoots a, CarrierBoots b, const Choices& keys, unsigned jobs,
                                 std::vector<std::string>* errors) {
  // A value that is as by default may have another place all the same.
  std::set<std::string> names;
  for (const auto& [name, value] : SetBy(keys, a.plan)) names.insert(name);
  for (const auto& [name, ending] : a.by_default) names.insert(name);
  for (const auto& [name, ending] : b.by_default) names.insert(name);
  a.names = b.names = names;
  std::vector<Choices> choices;
  for (const CarrierChoice& key : keys) choices.push_back({key});
  std::vector<CarrierOutcome> outcomes_a(keys.size());
  const auto keep = [&](size_t index, CarrierOutcome outcome) {
    outcomes_a[index] = std::move(outcome);
  };
  std::vector<BuildGroup> groups;
  const auto compare = [&](size_t index, const CarrierOutcome& in_b) {
    const CarrierOutcome in_a = std::move(outcomes_a[index]);
    const bool fails_in_a = !in_a.error.empty();
    const std::string& error = fails_in_a ? in_a.error : in_b.error;
    if (!error.empty()) {
      errors->push_back(keys[index].kind + " " + keys[index].key + ": " +
                        (fails_in_a ? a : b).plan.tree + ": " + error);
      return;
    }
    for (const auto& [name, ending] : in_a.endings) names.insert(name);
    for (const auto& [name, ending] : in_b.endings) names.insert(name);
    BuildGroup group = {{keys[index]}, {}};
    for (const std::string& name : names) {
      const Ending& end_a = EndingOf(a, in_a, name);
      const Ending& end_b = EndingOf(b, in_b, name);
      if (end_a.value == end_b.value) continue;
      group.differences[name] = {SideOf(end_a), SideOf(end_b)};
    }
    groups.push_back(std::move(group));
  };
  BootEach(a, choices, jobs, keep);
  BootEach(b, choices, jobs, compare);
  return groups;
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

// Boots by default and with each key that both builds know, over `base`.
BuildComparison Compare(const BootPlan& a, const BootPlan& b, const Choices& base, unsigned jobs) {
  const std::set<CarrierChoice> in_a = KeysOf(a), in_b = KeysOf(b);
  BuildComparison comparison;
  Choices keys = {{"", ""}};
  std::set_intersection(in_a.begin(), in_a.end(), in_b.begin(), in_b.end(),
                        std::back_inserter(keys));
  std::set_difference(in_a.begin(), in_a.end(), in_b.begin(), in_b.end(),
                      std::back_inserter(comparison.only_a));
  std::set_difference(in_b.begin(), in_b.end(), in_a.begin(), in_a.end(),
                      std::back_inserter(comparison.only_b));
  comparison.keys = keys.size() - 1;
  Gather(BootBoth(BootBuild(a, base), BootBuild(b, base), keys, jobs, &comparison.errors),
         &comparison);
  return comparison;
}

void PrintSide(const char* mark, const BuildSide& side) {
  const auto& [value, places] = side;
  std::cout << mark << Shown(value);
  if (!places.empty()) std::cout << "  " << Visible(*places.begin());
  if (places.size() > 1) std::cout << " and " << places.size() - 1 << " more";
  std::cout << '\n';
}

void PrintDifferences(const std::string& head, const BuildDifferences& differences, bool stat) {
  std::cout << Coloured(kBold, head + ": " + std::to_string(differences.size())) << '\n';
  if (stat) return;
  for (const auto& [name, sides] : differences) {
    std::cout << "  [" << Visible(name) << "]\n";
    PrintSide("    - ", sides.a);
    PrintSide("    + ", sides.b);
  }
}

std::string Listed(const Choices& keys) {
  std::string list;
  for (const CarrierChoice& key : keys) list += (list.empty() ? "" : ", ") + Visible(key.Title());
  return list;
}

void Print(const BuildComparison& comparison, bool stat) {
  const auto& [everywhere, groups, keys, only_a, only_b, errors] = comparison;
  if (!everywhere.empty()) PrintDifferences("every carrier", everywhere, stat);
  size_t different = 0;
  for (const BuildGroup& group : groups) {
    PrintDifferences(Listed(group.keys), group.differences, stat);
    different += group.keys.size() - (group.keys.front().kind.empty() ? 1 : 0);
  }
  if (!only_a.empty()) std::cout << Coloured(kBold, "only in A: " + Listed(only_a)) << '\n';
  if (!only_b.empty()) std::cout << Coloured(kBold, "only in B: " + Listed(only_b)) << '\n';
  std::cout << "keys in both builds: " << keys << ", with differences: " << different << " in "
            << groups.size() << " groups; only in A: " << only_a.size()
            << ", only in B: " << only_b.size() << '\n';
}

}  // namespace

int TwoBuilds(const Options& options, const BootPlan& a) {
  BootOptions other = options.boot;
  other.tree = options.tree_b;
  other.carriers.clear();
  const BootPlan b = OrFail(kTrouble, MakePlan(other));
  const BuildComparison compared = Compare(a, b, options.boot.carriers, options.jobs);
  if (options.json || options.json_lines) {
    const json all = compared;
    std::cout << JsonText(all, options.json ? 2 : -1) << '\n';
  } else {
    Print(compared, options.stat);
  }
  EndOutput(kTrouble);
  for (const std::string& error : compared.errors) Fail(kTrouble, error);
  if (!compared.errors.empty()) return kTrouble;
  const bool same = compared.everywhere.empty() && compared.groups.empty() &&
                    compared.only_a.empty() && compared.only_b.empty();
  return same ? kSame : kDifferent;
}

}  // namespace extprop
