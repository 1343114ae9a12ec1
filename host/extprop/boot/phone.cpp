#include "host/extprop/boot/phone.h"

#include <android-base/strings.h>

#include <set>
#include <utility>

#include "host/extprop/boot/library.h"
#include "host/extprop/boot/property_input.h"
#include "host/extprop/boot/recorder.h"

namespace extprop {

namespace {

using android::base::StartsWith;
using Names = std::set<std::string>;

// What the library computes or sets itself. A value that is there already would keep it from that,
// or is taken for one that it only hands on.
const Names kComputed = {
    "ro.vendor.vemra.exp.version",     "ro.vemra.customize.display.version_name",
    "ro.vemra.internet.force.connect", "ro.sys.customize.flashback.company",
    "sys.mount.mediapath.success",     kRequestProperty,
};

// What the boot sets: all that is handed over but what only stood in a property before.
Names SetBy(const BootRecord& record) {
  Names in_lines, set;
  for (const Step& step : record.steps) {
    for (const Event& event : step.events) {
      if (const auto* line = std::get_if<PropertyLine>(&event.what)) in_lines.insert(line->name);
      if (const auto* own = std::get_if<PropertySet>(&event.what)) set.insert(own->name);
      const auto* hand_over = std::get_if<HandOver>(&event.what);
      if (hand_over == nullptr || hand_over->mode == kStoredProperties) continue;
      for (const Entry& entry : hand_over->entries) {
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
    const bool is_given = StartsWith(name, kStoredPrefix) || StartsWith(name, "ro.boot.");
    if (is_given || names.count(name) == 0) rest.emplace(name, value);
  }
  return rest;
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
  Names left_out, set;
  for (const auto& [name, value] : phone) left_out.insert(name);
  Properties given, tried;
  do {
    tried = Without(left_out, phone);
    trial.properties = plan->properties;
    trial.properties.insert(tried.begin(), tried.end());
    Result<nlohmann::json> set_by = RunBoot(trial, SetBy);
    if (!set_by.ok()) return set_by.error();
    set.merge(set_by->get<Names>());
    left_out = kComputed;
    left_out.insert(set.begin(), set.end());
    given = Without(left_out, phone);
  } while (given != tried);
  // What nothing here has computed something else did.
  set.insert(kRequestProperty);
  for (const std::string& name : kComputed) {
    const auto value = phone.find(name);
    if (value != phone.end() && set.count(name) == 0) given.insert(*value);
  }
  plan->properties.insert(given.begin(), given.end());
  return {};
}

}  // namespace extprop
