#include "host/extprop/carriers/carrier_boots.h"

#include "host/extprop/boot/pack.h"
#include "host/extprop/carriers/job_pool.h"

namespace extprop {

namespace {

using android::base::Result;
using Choices = std::vector<CarrierChoice>;

std::string ValueOf(const Properties& properties, const std::string& name) {
  const auto found = properties.find(name);
  return found == properties.end() ? "" : found->second;
}

// The names whose endings are to be told of a boot of `plan`.
std::set<std::string> NamesToTell(const CarrierBoots& boots, const BootPlan& plan,
                                  const BootRecord& record) {
  std::set<std::string> names = boots.names;
  const auto look = [&](const std::string& name, const std::string& value) {
    const std::string given = ValueOf(plan.properties, name);
    if (given != value || given == ValueOf(boots.plan.properties, name)) names.insert(name);
  };
  auto before = boots.by_default.begin();
  const auto gone = [&] {
    if (!before->second.value.empty()) look(before->first, "");
    ++before;
  };
  for (const auto& [name, value] : record.properties) {
    while (before != boots.by_default.end() && before->first < name) gone();
    const bool known = before != boots.by_default.end() && before->first == name;
    if (!known || before->second.value != value) look(name, value);
    if (known) ++before;
  }
  while (before != boots.by_default.end()) gone();
  return names;
}

std::string ErrorOf(const BootRecord& record) {
  for (const Step& step : record.steps) {
    if (!step.error.empty()) return step.name + ": " + step.error;
  }
  return "";
}

// Boots `plan` with the choices and returns the outcome that `tell` makes of a whole record, in the
// child.
template <typename Tell>
CarrierOutcome Boot(BootPlan plan, const Choices& choices, const Tell& tell) {
  plan.lines = true;
  CarrierOutcome outcome;
  Result<void> in_force = PutInForce(choices, &plan);
  if (!in_force.ok()) {
    outcome.error = in_force.error().message();
    return outcome;
  }
  Result<std::string> bytes = RunBootFor(plan, [&](const BootRecord& record) {
    CarrierOutcome told;
    told.error = ErrorOf(record);
    if (told.error.empty()) tell(plan, record, &told);
    return Pack(told);
  });
  if (bytes.ok()) return Unpack<CarrierOutcome>(*bytes);
  outcome.error = bytes.error().message();
  return outcome;
}

}  // namespace

Result<CarrierBoots> BootByDefault(const BootPlan& plan, const Choices& base,
                                   const std::set<std::string>& names) {
  CarrierOutcome booted =
      Boot(plan, base, [](const BootPlan& booting, const BootRecord& record, CarrierOutcome* told) {
        told->endings = EndingsOf(record);
        told->fixed_start = FirstStepsAreFixed(booting, record);
      });
  if (!booted.error.empty()) return android::base::Error() << booted.error;
  return CarrierBoots{plan, std::move(booted.endings), base, booted.fixed_start, names};
}

CarrierOutcome BootWith(const CarrierBoots& boots, const Choices& choices,
                        const std::set<std::string>& more) {
  return Boot(boots.plan, Override(boots.base, choices),
              [&](const BootPlan& booting, const BootRecord& record, CarrierOutcome* told) {
                std::set<std::string> names = NamesToTell(boots, booting, record);
                names.insert(more.begin(), more.end());
                told->endings = EndingsOf(record, names);
              });
}

Result<void> BootEach(const CarrierBoots& boots, const std::vector<Choices>& choices, unsigned jobs,
                      const std::function<void(size_t, CarrierOutcome)>& take,
                      const std::vector<std::set<std::string>>& more) {
  CarrierBoots own = boots;  // of each worker
  own.plan.lines = true;
  return RunJobs(
      choices.size(), jobs,
      [&](size_t index) {
        return Pack(more.empty() ? BootWith(own, choices[index])
                                 : BootWith(own, choices[index], more[index]));
      },
      [&](size_t index, const std::string& outcome) {
        take(index, Unpack<CarrierOutcome>(outcome));
      },
      [&] {
        if (own.fixed_start) PlayFirstSteps(&own.plan);
      });
}

}  // namespace extprop
