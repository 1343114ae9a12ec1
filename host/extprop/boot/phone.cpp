#include "host/extprop/boot/phone.h"

#include <android-base/strings.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/boot/library.h"
#include "host/extprop/boot/property_input.h"
#include "host/extprop/boot/recorder.h"
#include "host/extprop/carriers/carrier_choice.h"

namespace extprop {

namespace {

using android::base::StartsWith;
using Names = std::set<std::string>;

constexpr const char* kByPhone = "--phone:";  // before a choice that it makes
constexpr const char* kFlashbackCompany = "ro.sys.customize.flashback.company";

// What the library computes or sets itself. A value that is there already would keep it from that,
// or is taken for one that it only hands on.
const Names kComputed = {
    "ro.vendor.vemra.exp.version",     "ro.vemra.customize.display.version_name",
    "ro.vemra.internet.force.connect", kFlashbackCompany,
    "sys.mount.mediapath.success",     kRequestProperty,
};

// What the boot sets: all that is handed over but what only stood in a property before.
Names NamesSetBy(const BootRecord& record) {
  Names in_lines, set;
  for (const Step& step : record.steps) {
    for (const Event& event : step.events) {
      if (const auto* line = std::get_if<PropertyLine>(&event.what)) in_lines.insert(line->name);
      if (const auto* own = std::get_if<PropertySet>(&event.what)) set.insert(own->name);
      const auto* hand_over = std::get_if<HandOver>(&event.what);
      if (hand_over == nullptr || hand_over->mode == kStoredProperties) continue;
      for (const Entry& entry : hand_over->entries) {
        if (!entry.refused.empty()) continue;
        if (entry.value != entry.old || in_lines.count(entry.name) != 0) set.insert(entry.name);
      }
    }
  }
  return set;
}

// What is left of a phone's properties for a boot, without the names that it may not be given.
Properties Without(const Names& names, const Properties& phone) {
  Properties rest;
  for (const auto& [name, value] : phone) {
    // All that the library computes of it is "invalid".
    const bool is_read = name == kFlashbackCompany && value != "invalid";
    const bool is_given =
        is_read || StartsWith(name, kStoredPrefix) || StartsWith(name, "ro.boot.");
    if (is_given || names.count(name) == 0) rest.emplace(name, value);
  }
  return rest;
}

// The phone's carrier keys that may be in its state files, of which the tree has none.
std::vector<CarrierChoice> MissingState(const Properties& phone, const BootPlan& plan) {
  std::vector<CarrierChoice> choices;
  for (const char* place : {"/mnt/vendor/vemrareserve", "/data/system/customize"}) {
    if (!OnWorkstation(plan.device, place).empty()) return choices;
  }
  for (const char* kind : {"current", "channel"}) {
    const std::string& key = ValueIn(phone, PropertyOf(kind));
    if (!key.empty()) choices.push_back({kind, key});
  }
  return choices;
}

// What a boot leaves, and what it set.
struct Trial {
  Properties left;
  Names set;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Trial, left, set)

// Gives the plan's device the phone's properties and `state`. Returns in how many properties the
// boot then ends otherwise than the phone.
Result<size_t> Give(const Properties& phone, const std::vector<CarrierChoice>& state,
                    BootPlan* plan) {
  Result<void> in_force = PutInForce(state, plan, kByPhone);
  if (!in_force.ok()) return in_force.error();
  const Properties chosen = plan->properties;
  // The more a boot is given, the more it may set; what it sets is not given to the next one.
  Names left_out, set;
  for (const auto& [name, value] : phone) left_out.insert(name);
  Properties given, tried;
  Trial trial;
  const auto boot = [&]() -> Result<void> {
    plan->properties = chosen;
    plan->properties.insert(given.begin(), given.end());
    Result<json> answer = RunBoot(*plan, [](const BootRecord& record) -> json {
      return Trial{record.properties, NamesSetBy(record)};
    });
    if (!answer.ok()) return answer.error();
    trial = answer->get<Trial>();
    return {};
  };
  do {
    tried = given = Without(left_out, phone);
    Result<void> booted = boot();
    if (!booted.ok()) return booted.error();
    set.insert(trial.set.begin(), trial.set.end());
    left_out = kComputed;
    left_out.insert(set.begin(), set.end());
    given = Without(left_out, phone);
  } while (given != tried);
  // What the last boot did not set something else did.
  trial.set.insert(kRequestProperty);
  given = Without(trial.set, phone);
  Result<void> booted = boot();
  if (!booted.ok()) return booted.error();
  std::vector<Properties::value_type> different;
  std::set_symmetric_difference(trial.left.begin(), trial.left.end(), phone.begin(), phone.end(),
                                std::back_inserter(different));
  return different.size();
}

}  // namespace

Result<void> GiveFromPhone(const std::string& file, BootPlan* plan) {
  Properties phone;
  Result<void> read = ReadPhone(file, &phone);
  if (!read.ok()) return read;
  Result<Library> library = LoadLibrary(plan->library);
  if (!library.ok()) return library.error();
  const bool lines = plan->lines;
  plan->lines = library->KSSI_OBSERVE_PropertyFiles != nullptr;

  // A property does not tell whether a state file has it: what agrees best with the phone counts.
  const std::vector<CarrierChoice> state = MissingState(phone, *plan);
  BootPlan best;
  size_t fewest = ~size_t{0};
  for (unsigned kept = 0; kept < 1U << state.size(); ++kept) {
    std::vector<CarrierChoice> some;
    for (size_t i = 0; i < state.size(); ++i) {
      if ((kept >> i & 1U) != 0) some.push_back(state[i]);
    }
    BootPlan tried = *plan;
    Result<size_t> differences = Give(phone, some, &tried);
    if (!differences.ok()) return differences.error();
    if (*differences > fewest) continue;
    fewest = *differences;
    best = std::move(tried);
  }
  best.lines = lines;
  *plan = std::move(best);
  return {};
}

}  // namespace extprop
