#include "host/extprop/carriers/two_builds.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <utility>

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CarrierChoice, kind, key)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BuildSide, value, places)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BuildDifference, a, b)

namespace {

using android::base::Error;
using android::base::Result;
using Choices = std::vector<CarrierChoice>;

// How the builds end differently with one key.
struct Column {
  std::string error;
  std::vector<Difference> differences;
};

using Done = std::function<void(size_t, size_t, const CarrierChoice&)>;
using Outcomes = std::vector<CarrierOutcome>;

// The boots of two builds with the same keys.
class Boots {
 public:
  Boots(const Choices& keys, unsigned jobs, const Done& done)
      : keys_(keys), jobs_(jobs), done_(done) {}

  Result<std::vector<Column>> Compare(CarrierBoots a, CarrierBoots b) {
    for (const Difference& found : extprop::Compare(a.by_default, b.by_default)) {
      a.names.insert(found.name);
    }
    b.names = a.names;
    Outcomes in_a(keys_.size()), in_b(keys_.size());
    Result<void> run = Run(a, in_b, &in_a);
    // The place of a value is only known where it is told, so each side tells what the other does.
    if (run.ok()) run = Run(b, in_a, &in_b);
    if (run.ok()) run = Run(a, in_b, &in_a);
    if (!run.ok()) return run.error();
    std::vector<Column> columns;
    for (size_t i = 0; i < keys_.size(); ++i) {
      columns.push_back({in_a[i].error.empty() ? "" : a.plan.tree + ": " + in_a[i].error, {}});
      std::string& error = columns.back().error;
      if (error.empty() && !in_b[i].error.empty()) error = b.plan.tree + ": " + in_b[i].error;
      if (!error.empty()) continue;
      columns.back().differences = extprop::Compare(in_a[i].endings, in_b[i].endings);
    }
    return columns;
  }

 private:
  // Boots with each key; after both builds were, only where `*outcomes` does not tell all that
  // `other` does.
  Result<void> Run(const CarrierBoots& boots, const Outcomes& other, Outcomes* outcomes) {
    std::vector<size_t> wanted;
    std::vector<Choices> choices;
    std::vector<std::set<std::string>> more;
    for (size_t i = 0; i < keys_.size(); ++i) {
      std::set<std::string> names;
      for (const auto& [name, ending] : other[i].endings) names.insert(name);
      const Endings& told = (*outcomes)[i].endings;
      const bool all = std::all_of(names.begin(), names.end(),
                                   [&](const std::string& name) { return told.count(name) != 0; });
      if (over_ >= 2 * keys_.size() && all) continue;
      wanted.push_back(i);
      choices.push_back(keys_[i].kind.empty() ? Choices{} : Choices{keys_[i]});
      more.push_back(std::move(names));
    }
    return BootEach(
        boots, choices, jobs_,
        [&](size_t index, CarrierOutcome outcome) {
          (*outcomes)[wanted[index]] = std::move(outcome);
          ++over_;
          done_(over_, std::max(over_, 2 * keys_.size()), keys_[wanted[index]]);
        },
        more);
  }

  const Choices& keys_;
  const unsigned jobs_;
  const Done& done_;
  size_t over_ = 0;
};

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

Result<BuildComparison> CompareBuilds(const BootPlan& a, const BootPlan& b, const Choices& base,
                                      unsigned jobs, const Done& done) {
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

  Result<CarrierBoots> boots_a = BootByDefault(a, base);
  if (!boots_a.ok()) return Error() << a.tree << ": " << boots_a.error();
  Result<CarrierBoots> boots_b = BootByDefault(b, base);
  if (!boots_b.ok()) return Error() << b.tree << ": " << boots_b.error();
  Result<std::vector<Column>> columns = Boots(keys, jobs, done).Compare(*boots_a, *boots_b);
  if (!columns.ok()) return columns.error();
  for (size_t i = 0; i < keys.size(); ++i) {
    const std::string& error = (*columns)[i].error;
    if (error.empty()) continue;
    comparison.errors.push_back(keys[i].kind + " " + keys[i].key + ": " + error);
  }
  Group(keys, *columns, &comparison);
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
