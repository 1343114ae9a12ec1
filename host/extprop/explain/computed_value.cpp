#include "host/extprop/explain/computed_value.h"

#include <android-base/strings.h>

#include <set>

#include "host/extprop/explain/history.h"

namespace extprop {

namespace {

// What a rule asks for besides mode and name.
constexpr unsigned kAlone = 1;  // the hand-over has no other entry, which is how it is known
constexpr unsigned kUnset = 2;  // the property was unset before
constexpr unsigned kSet = 4;

struct Rule {
  int mode;
  const char* name;
  unsigned conditions;
  const char* text;
  const char* inputs;  // as of a ComputedValue, with blanks between them
};

constexpr const char* kAnyName = "*";
constexpr const char* kDisplayVersion = "ro.vemra.customize.display.version_name";
constexpr const char* kWhetherRestored =
    "persist.sys.911.shutdown persist.sys.recopy.preload.vminstalled";

// The first that applies counts.
constexpr Rule kRules[] = {
    {kFilledMap, "ro.vemra.cust.ver", 0, "default customisation version",
     "ro.vemra.image.my_carrier.type"},
    {2, "persist.sys.vemra.company.ota.version.backup", kAlone, "company update marker",
     "ro.vemra.image.my_company.date"},
    {2, "persist.sys.channel.info", 0, "channel restore", kWhetherRestored},
    {2, "persist.sys.channel.country.info", 0, "channel restore", kWhetherRestored},
    {2, kAnyName, 0, "channel restore",
     "persist.sys.911.shutdown persist.sys.recopy.preload.vminstalled "
     "persist.sys.remove.region.apk persist.sys.remove.carrier.apk "
     "persist.sys.remove.region-all.apk"},
    {0, "ro.vendor.vemra.exp.version", kAlone, "special property",
     "ro.vendor.vemra.version_suffix ro.build.display.id"},
    {0, kDisplayVersion, kAlone | kUnset, "special property",
     "ro.vemra.image.my_carrier.version_name|ro.vemra.image.my_region.version_name"},
    {0, kDisplayVersion, kAlone | kSet, "display version name",
     "ro.vemra.image.my_carrier.version_name|ro.vemra.customize.display.version_name "
     "ro.build.cota.version_name"},
    {0, "ro.vemra.internet.force.connect", kAlone | kUnset, "forced connection",
     "persist.sys.911.shutdown ro.vemra.internet.whether.force.connect"},
    {0, "ro.sys.customize.flashback.company", kUnset, "no flashback file", ""},
    {kSetDirectly, "sys.mount.mediapath.success", 0, "set by the library",
     "ro.sys.custommedia.sourcepath"},
    {kSetDirectly, kAnyName, 0, "set by the library", ""},
    {0, "ro.vemra.image.my_carrier.date.utc", 0, "carried over from the image",
     "ro.vemra.image.my_bigball.date.utc"},
    {0, "ro.vemra.image.my_carrier.version_name", 0, "carried over from the image",
     kCarriedOverName},
};

bool Applies(const Rule& rule, const HandOver& hand_over, const Entry& entry) {
  if (rule.mode != hand_over.mode) return false;
  if (rule.name != entry.name && rule.name != std::string(kAnyName)) return false;
  const unsigned alone = hand_over.entries.size() == 1 ? kAlone : 0;
  const unsigned met = alone | (entry.old.empty() ? kUnset : kSet);
  return (rule.conditions & ~met) == 0;
}

}  // namespace

ComputedValue FindComputedValue(const HandOver& hand_over, const Entry& entry) {
  for (const Rule& rule : kRules) {
    if (Applies(rule, hand_over, entry)) return {rule.text, android::base::Split(rule.inputs, " ")};
  }
  return {};
}

bool IsInput(const std::string& name) {
  static const auto inputs = [] {
    std::set<std::string> names;
    for (const Rule& rule : kRules) {
      for (const std::string& input : android::base::Split(rule.inputs, " |")) names.insert(input);
    }
    return names;
  }();
  return inputs.count(name) != 0;
}

}  // namespace extprop
