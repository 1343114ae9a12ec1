#include "host/extprop/boot/phone.h"

#include <android-base/strings.h>

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

// The phone's carrier keys that it has in state files which the tree lacks.
std::vector<CarrierChoice> MissingState(const Properties& phone, const BootPlan& plan) {
  std::vector<CarrierChoice> choices;
  for (const auto& [kind, file] :
       {std::pair("current", kCurrentFile), std::pair("channel", kDataCommonFile)}) {
    const std::string& key = ValueIn(phone, PropertyOf(kind));
    if (!key.empty() && OnWorkstation(plan.device, file).empty()) choices.push_back({kind, key});
  }
  return choices;
}

}  // namespace

Result<void> GiveFromPhone(const std::string& file, BootPlan* plan) {
  Properties phone;
  Result<void> read = ReadPhone(file, &phone);
  if (!read.ok()) return read;
  Result<Library> library = LoadLibrary(plan->library);
  if (!library.ok()) return library.error();
  BootPlan trial = *plan;
  trial.lines = library->KSSI_OBSERVE_PropertyFiles != nullptr;

  // The more a boot is given, the more it may set; what it sets is not given to the next one.
  const std::vector<CarrierChoice> state = MissingState(phone, *plan);
  Names left_out, set, last;
  for (const auto& [name, value] : phone) left_out.insert(name);
  Properties given, tried;
  do {
    tried = Without(left_out, phone);
    trial.properties = plan->properties;
    trial.properties.insert(tried.begin(), tried.end());
    trial.prepare = plan->prepare;
    Result<void> in_force = PutInForce(state, &trial, kByPhone);
    if (!in_force.ok()) return in_force;
    Result<json> names = RunBoot(trial, NamesSetBy);
    if (!names.ok()) return names.error();
    last = names->get<Names>();
    set.insert(last.begin(), last.end());
    left_out = kComputed;
    left_out.insert(set.begin(), set.end());
    given = Without(left_out, phone);
  } while (given != tried);
  // What the boot does not set something else did.
  last.insert(kRequestProperty);
  given = Without(last, phone);
  plan->properties.insert(given.begin(), given.end());
  return PutInForce(state, plan, kByPhone);
}

}  // namespace extprop
