#include "host/extprop/boot/phone.h"

#include <android-base/strings.h>

#include <set>
#include <utility>

#include "host/extprop/boot/library_functions.h"
#include "host/extprop/boot/recorder.h"

namespace extprop {

namespace {

using android::base::Result;
using android::base::StartsWith;
using Names = std::set<std::string>;

// What the library computes or sets itself. A value that is there already would keep it from that,
// or is taken for one that it only hands on.
const Names kComputed = {
    "ro.vendor.vemra.exp.version",     "ro.vemra.customize.display.version_name",
    "ro.vemra.internet.force.connect", "ro.sys.customize.flashback.company",
    "sys.mount.mediapath.success",     kRequestProperty,
};

bool IsGiven(const std::string& name) {
  return StartsWith(name, kStoredPrefix) || StartsWith(name, "ro.boot.");
}

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

Properties Without(const Names& names, const Properties& phone) {
  Properties rest;
  for (const auto& [name, value] : phone) {
    if (IsGiven(name) || names.count(name) == 0) rest.emplace(name, value);
  }
  return rest;
}

}  // namespace

Result<Properties> BootsWith(const Properties& phone, const BootPlan& plan) {
  BootPlan trial = plan;
  trial.keep_fd = -1;
  Result<Factory> library = LoadLibrary(plan.library);
  if (!library.ok()) return library.error();
  trial.lines = FindLibraryFunctions(*library).KSSI_OBSERVE_PropertyFiles != nullptr;

  // The more a boot is given, the more it may set; what it sets is not given to the next one.
  Names all, set;
  for (const auto& [name, value] : phone) all.insert(name);
  Properties given = Without(all, phone);
  for (bool more = true; more;) {
    trial.properties = given;
    for (const auto& [name, value] : plan.properties) trial.properties[name] = value;
    Result<BootRecord> record = RunBoot(trial);
    if (!record.ok()) return record.error();
    set.merge(SetBy(*record));
    Names left_out = kComputed;
    left_out.insert(set.begin(), set.end());
    Properties next = Without(left_out, phone);
    more = next != given;
    given = std::move(next);
  }
  // Nothing here has computed these, so something else did.
  for (const std::string& name : kComputed) {
    const auto value = phone.find(name);
    if (value != phone.end() && set.count(name) == 0 && name != kRequestProperty)
      given.insert(*value);
  }
  return given;
}

}  // namespace extprop
