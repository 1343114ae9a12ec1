#include "host/extprop/carriers/carrier_boots.h"

#include <malloc.h>

#include <algorithm>
#include <deque>
#include <iterator>
#include <thread>
#include <tuple>
#include <utility>

#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

using Choices = std::vector<CarrierChoice>;

// What is to be told of a boot of `plan`.
Endings EndingsToTell(const CarrierBoots& boots, const BootPlan& plan, const BootRecord& record) {
  // Of each property that differs the value, or both.
  std::vector<Properties::value_type> differing;
  std::set_symmetric_difference(record.properties.begin(), record.properties.end(),
                                boots.values.begin(), boots.values.end(),
                                std::back_inserter(differing));
  std::set<std::string> names = boots.names;
  for (const auto& [name, one] : differing) {
    const std::string given = ValueIn(plan.properties, name);
    const bool as_given = given == ValueIn(record.properties, name);
    if (!as_given || given == ValueIn(boots.plan.properties, name)) names.insert(name);
  }
  const auto parts = [](const Ending& ending) {
    return std::tie(ending.value, ending.place, ending.loader, ending.note);
  };
  Endings told;
  for (const auto& [name, ending] : EndingsOf(record, &names)) {
    if (parts(ending) != parts(ValueIn(boots.by_default, name))) told[name] = ending;
  }
  return told;
}

using Tell = std::function<Endings(const BootPlan& plan, const BootRecord& record)>;

// Starts a boot of `plan` with the choices, of whose record `tell` makes the endings.
Result<StartedBoot> Start(BootPlan plan, const Choices& choices, const Tell& tell) {
  plan.lines = true;
  Result<void> in_force = PutInForce(choices, &plan);
  if (!in_force.ok()) return in_force.error();
  return StartedBoot::Start(plan, [&](const BootRecord& record) -> json {
    const std::string error = ErrorOf(record);
    return {{"error", error}, {"endings", error.empty() ? tell(plan, record) : Endings()}};
  });
}

CarrierOutcome Finish(Result<StartedBoot> boot) {
  if (!boot.ok()) return {boot.error().message(), {}};
  Result<json> told = boot->Finish();
  if (!told.ok()) return {told.error().message(), {}};
  return {(*told)["error"], (*told)["endings"]};
}

// Has told where each property is from that the choice of a key may move.
Result<void> TellPlaces(const std::vector<CarrierKey>& keys, CarrierBoots* boots) {
  Result<std::set<std::string>> names = FindSurveyedNames(boots->plan);
  if (!names.ok()) return names.error();
  for (const CarrierKey& key : keys) {
    for (const auto& [name, value] : SetBy(key.Choice(), boots->plan)) names->insert(name);
  }
  boots->names.merge(*names);
  return {};
}

}  // namespace

Result<CarrierBoots> BootByDefault(const BootPlan& plan, const Choices& base,
                                   const std::set<std::string>& names) {
  CarrierOutcome booted = Finish(Start(
      plan, base, [](const BootPlan&, const BootRecord& record) { return EndingsOf(record); }));
  if (!booted.error.empty()) return Error() << booted.error;
  CarrierBoots boots = {plan, std::move(booted.endings), {}, base, names};
  for (const auto& [name, ending] : boots.by_default) {
    if (!ending.value.empty()) boots.values.emplace_hint(boots.values.end(), name, ending.value);
  }
  // What the default boot needed is not to be copied into the process of every other.
  malloc_trim(0);
  return boots;
}

const Ending& EndingOf(const Endings& by_default, const CarrierOutcome& outcome,
                       const std::string& name) {
  return ValueIn(outcome.endings.count(name) == 0 ? by_default : outcome.endings, name);
}

void BootEach(const CarrierBoots& boots, const std::vector<Choices>& choices, unsigned jobs,
              const std::function<void(size_t index, const CarrierOutcome& outcome)>& take) {
  if (jobs == 0) jobs = std::max(1U, std::thread::hardware_concurrency());
  Progress progress;
  std::deque<Result<StartedBoot>> running;
  size_t done = 0;
  const auto finish = [&] {
    const CarrierOutcome outcome = Finish(std::move(running.front()));
    running.pop_front();
    progress.Clear();
    take(done++, outcome);
    if (done < choices.size()) progress.Show(done, choices.size(), Titles(choices[done], " "));
  };
  const auto tell = [&](const BootPlan& plan, const BootRecord& record) {
    return EndingsToTell(boots, plan, record);
  };
  for (const Choices& each : choices) {
    if (running.size() == jobs) finish();
    running.push_back(Start(boots.plan, Override(boots.base, each), tell));
  }
  while (!running.empty()) finish();
}

Result<Endings> BootWithKeys(const BootPlan& plan, const Choices& base, unsigned jobs,
                             const TakeKey& take, bool every_place) {
  Result<std::vector<CarrierKey>> found = FindCarrierKeys(plan);
  if (!found.ok()) return found.error();
  Result<CarrierBoots> boots = BootByDefault(plan, base);
  if (!boots.ok()) return boots.error();
  std::vector<CarrierKey> keys;
  std::vector<Choices> choices;
  for (CarrierKey& key : *found) {
    if (!key.listed) continue;
    choices.push_back(key.never.empty() ? Choices{key.Choice()} : Choices());
    keys.push_back(std::move(key));
  }
  if (every_place) {
    Result<void> told = TellPlaces(keys, &*boots);
    if (!told.ok()) return told.error();
  }
  BootEach(*boots, choices, jobs, [&](size_t index, const CarrierOutcome& outcome) {
    take(boots->by_default, keys[index], outcome);
  });
  return std::move(boots->by_default);
}

Result<CarrierTable> FillCarrierTable(const BootPlan& plan, const Choices& base, unsigned jobs,
                                      bool every_place) {
  CarrierTable table;
  std::string error;
  const auto add = [&](const Endings& by_default, const CarrierKey& key,
                       const CarrierOutcome& outcome) {
    if (!key.never.empty()) return;
    if (error.empty() && !outcome.error.empty()) error = key.Choice().Text() + ": " + outcome.error;
    table.columns.push_back({key, {}});
    for (const auto& [name, ending] : outcome.endings) {
      if (ending.value == ValueIn(by_default, name).value) continue;
      table.columns.back().differences.emplace(name, ending);
    }
  };
  Result<Endings> by_default = BootWithKeys(plan, base, jobs, add, every_place);
  if (!by_default.ok()) return by_default.error();
  if (!error.empty()) return Error() << error;
  table.by_default = std::move(*by_default);
  return table;
}

std::set<std::string> VaryingNames(const CarrierTable& table) {
  std::set<std::string> names;
  for (const CarrierColumn& column : table.columns) {
    for (const auto& [name, ending] : column.differences) names.insert(name);
  }
  return names;
}

}  // namespace extprop
