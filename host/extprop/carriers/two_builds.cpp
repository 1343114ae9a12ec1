#include "host/extprop/carriers/two_builds.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/extprop/boot/pack.h"
#include "host/extprop/carriers/job_pool.h"

namespace extprop {

constexpr auto FieldsOf(const Difference*) {
  return std::make_tuple(std::pair("name", &Difference::name), std::pair("a", &Difference::a),
                         std::pair("b", &Difference::b));
}

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CarrierChoice, kind, key)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BuildSide, value, places)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BuildDifference, a, b)

namespace {

using android::base::Result;
using Choices = std::vector<CarrierChoice>;

// How the builds end differently with one key.
struct Column {
  std::string error;
  std::vector<Difference> differences;
};

constexpr auto FieldsOf(const Column*) {
  return std::make_tuple(std::pair("error", &Column::error),
                         std::pair("differences", &Column::differences));
}

Column CompareWith(const BootPlan& a, const BootPlan& b, const Choices& choices) {
  const CarrierOutcome in_a = BootWhole(a, choices);
  if (!in_a.error.empty()) return {a.tree + ": " + in_a.error, {}};
  const CarrierOutcome in_b = BootWhole(b, choices);
  if (!in_b.error.empty()) return {b.tree + ": " + in_b.error, {}};
  return {"", Compare(in_a.endings, in_b.endings)};
}

// The property and its two values: what is the same of two boots.
using Values = std::tuple<std::string, std::string, std::string>;

Values ValuesOf(const Difference& difference) {
  return {difference.name, difference.a.value, difference.b.value};
}

void AddTo(BuildDifferences* differences, const Difference& found) {
  BuildDifference& difference = (*differences)[found.name];
  difference.a.value = found.a.value;
  difference.b.value = found.b.value;
  if (!found.a.place.empty()) difference.a.places.insert(found.a.place);
  if (!found.b.place.empty()) difference.b.places.insert(found.b.place);
}

std::set<Values> InAll(const std::vector<Column>& columns) {
  std::map<Values, size_t> counts;
  size_t booted = 0;
  for (const Column& column : columns) {
    if (column.error.empty()) ++booted;
    for (const Difference& found : column.differences) ++counts[ValuesOf(found)];
  }
  std::set<Values> in_all;
  for (const auto& [values, count] : counts) {
    if (count == booted) in_all.insert(values);
  }
  return in_all;
}

void Group(const Choices& keys, const std::vector<Column>& columns, BuildComparison* comparison) {
  const std::set<Values> in_all = InAll(columns);
  std::map<std::vector<Values>, size_t> groups;  // where in the comparison
  for (size_t i = 0; i < columns.size(); ++i) {
    std::vector<Values> others;
    for (const Difference& found : columns[i].differences) {
      const Values values = ValuesOf(found);
      if (in_all.count(values) != 0) {
        AddTo(&comparison->everywhere, found);
      } else {
        others.push_back(values);
      }
    }
    if (others.empty()) continue;
    const auto place = groups.emplace(std::move(others), comparison->groups.size());
    if (place.second) comparison->groups.emplace_back();
    BuildGroup& group = comparison->groups[place.first->second];
    group.keys.push_back(keys[i]);
    for (const Difference& found : columns[i].differences) {
      if (in_all.count(ValuesOf(found)) == 0) AddTo(&group.differences, found);
    }
  }
}

bool Less(const CarrierChoice& a, const CarrierChoice& b) {
  return std::tie(a.kind, a.key) < std::tie(b.kind, b.key);
}

Result<Choices> SortedKeys(const BootPlan& plan) {
  Result<std::vector<CarrierKey>> keys = FindCarrierKeys(plan);
  if (!keys.ok()) return keys.error();
  Choices choices = ChoicesOf(*keys);
  std::sort(choices.begin(), choices.end(), Less);
  return choices;
}

}  // namespace

Result<BuildComparison> CompareBuilds(
    const BootPlan& a, const BootPlan& b, const Choices& base, unsigned jobs,
    const std::function<void(size_t, size_t, const CarrierChoice&)>& done) {
  Result<Choices> keys_a = SortedKeys(a);
  if (!keys_a.ok()) return keys_a.error();
  Result<Choices> keys_b = SortedKeys(b);
  if (!keys_b.ok()) return keys_b.error();
  BuildComparison comparison;
  Choices keys = {{"", ""}};
  std::set_intersection(keys_a->begin(), keys_a->end(), keys_b->begin(), keys_b->end(),
                        std::back_inserter(keys), Less);
  std::set_difference(keys_a->begin(), keys_a->end(), keys_b->begin(), keys_b->end(),
                      std::back_inserter(comparison.only_a), Less);
  std::set_difference(keys_b->begin(), keys_b->end(), keys_a->begin(), keys_a->end(),
                      std::back_inserter(comparison.only_b), Less);
  comparison.keys = keys.size() - 1;

  std::vector<Column> columns;
  Result<void> run = RunJobs(
      keys.size(), jobs,
      [&](size_t number) {
        const Choices choices = number == 0 ? Choices{} : Choices{keys[number]};
        return Pack(CompareWith(a, b, Override(base, choices)));
      },
      [&](size_t number, const std::string& outcome) {
        columns.push_back(Unpack<Column>(outcome));
        const Column& column = columns.back();
        if (!column.error.empty()) {
          comparison.errors.push_back(keys[number].kind + " " + keys[number].key + ": " +
                                      column.error);
        }
        done(number, keys.size(), keys[number]);
      });
  if (!run.ok()) return run.error();
  Group(keys, columns, &comparison);
  return comparison;
}

nlohmann::json ToJson(const BuildComparison& comparison) {
  nlohmann::json groups = nlohmann::json::array();
  for (const BuildGroup& group : comparison.groups) {
    groups.push_back({{"keys", group.keys}, {"differences", group.differences}});
  }
  return {{"everywhere", comparison.everywhere},
          {"groups", groups},
          {"keys", comparison.keys},
          {"only_a", comparison.only_a},
          {"only_b", comparison.only_b},
          {"errors", comparison.errors}};
}

}  // namespace extprop
