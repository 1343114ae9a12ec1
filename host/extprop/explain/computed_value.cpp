#include "host/extprop/explain/computed_value.h"

#include <android-base/strings.h>

#include <string_view>
#include <unordered_set>
#include <utility>

namespace extprop {

namespace {

constexpr const char* kAnyName = "*";
constexpr const char* kDisplayVersion = "ro.vemra.customize.display.version_name";
constexpr const char* kShutdown = "persist.sys.911.shutdown";
constexpr const char* kRecopy = "persist.sys.recopy.preload.vminstalled";

// Hand-overs that hold nothing else are known by that.
enum class Company { kAny, kAlone };
enum class Before { kAny, kUnset, kSet };

struct Rule {
  int mode;
  const char* name;
  Company company;
  Before before;
  const char* text;
  std::vector<std::string> inputs;
};

const std::vector<Rule>& Rules() {
  static const std::vector<Rule> rules = {
      {kFilledMap,
       "ro.vemra.cust.ver",
       Company::kAny,
       Before::kAny,
       "default customisation version",
       {"ro.vemra.image.my_carrier.type"}},
      {2,
       "persist.sys.vemra.company.ota.version.backup",
       Company::kAlone,
       Before::kAny,
       "company update marker",
       {"ro.vemra.image.my_company.date"}},
      {2,
       "persist.sys.channel.info",
       Company::kAny,
       Before::kAny,
       "channel restore",
       {kShutdown, kRecopy}},
      {2,
       "persist.sys.channel.country.info",
       Company::kAny,
       Before::kAny,
       "channel restore",
       {kShutdown, kRecopy}},
      {2,
       kAnyName,
       Company::kAny,
       Before::kAny,
       "channel restore",
       {kShutdown, kRecopy, "persist.sys.remove.region.apk", "persist.sys.remove.carrier.apk",
        "persist.sys.remove.region-all.apk"}},
      {0,
       "ro.vendor.vemra.exp.version",
       Company::kAlone,
       Before::kAny,
       "special property",
       {"ro.vendor.vemra.version_suffix", "ro.build.display.id"}},
      {0,
       kDisplayVersion,
       Company::kAlone,
       Before::kUnset,
       "special property",
       {"ro.vemra.image.my_carrier.version_name|ro.vemra.image.my_region.version_name"}},
      {0,
       kDisplayVersion,
       Company::kAlone,
       Before::kSet,
       "display version name",
       {"ro.vemra.image.my_carrier.version_name|ro.vemra.customize.display.version_name",
        "ro.build.cota.version_name"}},
      {0,
       "ro.vemra.internet.force.connect",
       Company::kAlone,
       Before::kUnset,
       "forced connection",
       {kShutdown, "ro.vemra.internet.whether.force.connect"}},
      {0,
       "ro.sys.customize.flashback.company",
       Company::kAny,
       Before::kUnset,
       "no flashback file",
       {}},
      {0,
       "ro.vemra.image.my_carrier.date.utc",
       Company::kAny,
       Before::kAny,
       "carried over from the image",
       {"ro.vemra.image.my_bigball.date.utc"}},
      {0,
       "ro.vemra.image.my_carrier.version_name",
       Company::kAny,
       Before::kAny,
       "carried over from the image",
       {kCarriedOverName}},
  };
  return rules;
}

bool Applies(const Rule& rule, const HandOver& hand_over, const Entry& entry) {
  if (rule.mode != hand_over.mode) return false;
  if (rule.name != std::string_view(kAnyName) && rule.name != entry.name) return false;
  if (rule.company == Company::kAlone && hand_over.entries.size() != 1) return false;
  return rule.before == Before::kAny || (rule.before == Before::kUnset) == entry.old.empty();
}

}  // namespace

ComputedValue FindComputedValue(const HandOver& hand_over, const Entry& entry) {
  for (const Rule& rule : Rules()) {
    if (Applies(rule, hand_over, entry)) return {rule.text, rule.inputs};
  }
  return {};
}

bool IsInput(const std::string& name) {
  static const auto inputs = [] {
    std::unordered_set<std::string> names;
    for (const Rule& rule : Rules()) {
      for (const std::string& input : rule.inputs) {
        for (std::string& each : android::base::Split(input, "|")) names.insert(std::move(each));
      }
    }
    return names;
  }();
  return inputs.count(name) != 0;
}

}  // namespace extprop
