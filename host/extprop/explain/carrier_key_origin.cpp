#include "host/extprop/explain/carrier_key_origin.h"

#include <android-base/strings.h>

#include <algorithm>
#include <cwctype>
#include <utility>

namespace extprop {

namespace {

using android::base::EndsWith;

constexpr size_t kNvKeySize = 8;
constexpr const char* kNvSources[] = {"/mnt/vendor/vemrareserve/radio/exp_operator_switch.config",
                                      "/dev/block/platform/bootdevice/by-name/reserve_exp1",
                                      "/dev/block/bootdevice/by-name/reserve_exp1"};
constexpr const char* kSimActionFile = "/mnt/vendor/vemrareserve/system/ssv/sim_action_file";
constexpr const char* kBootCarrier = "ro.boot.vmcarrier";
constexpr const char* kOperatorA = "persist.sys.vemra.operator.opta";
constexpr const char* kOperatorB = "persist.sys.vemra.operator.optb";

constexpr const char* kKeyedDirectories[][2] = {{"first", "/SimSwitchFirstTime"},
                                                {"current", "/SimSwitchCurrentTime"},
                                                {"channel", "/switchCarrierChannel"}};
constexpr const char* kKeyProperties[][2] = {{"first", "sys.sim.switch.first"},
                                             {"current", "sys.sim.switch.current"},
                                             {"channel", "persist.sys.channel.info"}};

std::string LowerCased(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(towlower(static_cast<wint_t>(static_cast<unsigned char>(c))));
  }
  return text;
}

// Where it is from, for the end of a sentence.
std::string From(const Origin& origin) {
  std::string text = origin.place.empty() ? "" : ", from " + origin.place;
  const char* before = origin.place.empty() ? ", from " : " by ";
  for (const Origin& input : origin.inputs) {
    text += std::exchange(before, " and ") + input.name + " " + input.value;
    text += input.place.empty() ? From(input) : " (" + input.place + ")";
  }
  return text;
}

}  // namespace

bool IsCarrierProperty(const std::string& name) {
  for (const auto& [kind, property] : kKeyProperties) {
    if (name == property) return true;
  }
  return name == kOperatorA || name == kOperatorB || name == kBootCarrier;
}

std::string DirectoryOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

KeyedPath ParseKeyedPath(const std::string& path) {
  const std::string file_start = "/etc/build.", suffix = ".prop";
  const size_t file = path.rfind(file_start);
  if (file != std::string::npos && EndsWith(path, suffix)) {
    const size_t key = file + file_start.size();
    if (key + suffix.size() >= path.size()) return {};
    const std::string found = path.substr(key, path.size() - suffix.size() - key);
    if (found.find('/') != std::string::npos) return {};
    return {"file", found};
  }
  const std::string directory = DirectoryOf(path);
  for (const auto& [kind, name] : kKeyedDirectories) {
    if (!EndsWith(directory, name)) continue;
    const std::string parent = DirectoryOf(directory);
    const std::string above = "/properties/";
    const size_t key = parent.rfind(above);
    if (key != std::string::npos) return {kind, parent.substr(key + above.size())};
  }
  return {};
}

void CarrierKeyOrigins::TakeRead(const FileEvent& read) {
  if (read.error != 0 || read.content.empty()) return;
  const bool is_nv =
      std::find(std::begin(kNvSources), std::end(kNvSources), read.path) != std::end(kNvSources);
  if (is_nv) {
    nv_key_ = {"nv key", read.content.substr(0, kNvKeySize), read.path, "", {}, {}};
  } else if (read.path == kSimActionFile) {
    ssv_key_ = {"ssv key", read.content, read.path, "", {}, {}};
  }
}

void CarrierKeyOrigins::TakeMappingLine(const std::string& mapping_file, const std::string& name,
                                        const std::string& value, const std::string& place) {
  Mappings* mappings = EndsWith(mapping_file, "/flags.prop") ? &nv_targets_ : &first_keys_;
  auto mapping = std::find_if(mappings->begin(), mappings->end(),
                              [&](const auto& each) { return each.first == mapping_file; });
  if (mapping == mappings->end()) mapping = mappings->insert(mapping, {mapping_file, {}});
  mapping->second[name] = {value, place};
}

// The first file that has the key decides, as far as its first NUL byte.
Origin CarrierKeyOrigins::Translate(const Mappings& mappings, const std::string& key) {
  for (const auto& [file, mapping] : mappings) {
    const auto found = mapping.find(key.c_str());
    if (found == mapping.end()) continue;
    Origin target;
    target.value = found->second.first;
    target.place = found->second.second;
    return target;
  }
  return {};
}

Origin CarrierKeyOrigins::ConvertedFirstKey() const {
  // The operator key is the SSV key where the device has no other.
  for (const Origin& legacy :
       {CurrentOrigin(histories_, kBootCarrier), nv_key_, ssv_key_, OperatorKey()}) {
    Origin first = Translate(first_keys_, legacy.value);
    if (legacy.value.empty() || first.value.empty()) continue;
    first.inputs.push_back(legacy);
    return first;
  }
  return {};
}

// The setting that gave the property that value, also where another has overridden it since or init
// refused it: the library keeps the key.
Origin CarrierKeyOrigins::PropertyOrigin(const std::string& name, const std::string& value) const {
  const auto history = histories_.find(name);
  if (history == histories_.end()) return {};
  for (auto setting = history->second.rbegin(); setting != history->second.rend(); ++setting) {
    if (setting->value == value && setting->mode != kNotHandedOver) return OriginOf(*setting);
  }
  return {};
}

Origin CarrierKeyOrigins::OperatorKey() const {
  const Origin a = CurrentOrigin(histories_, kOperatorA), b = CurrentOrigin(histories_, kOperatorB);
  if (a.value.empty() || b.value.empty()) return {};
  Origin key;
  key.name = "operator key";
  key.value = LowerCased(a.value) + "-" + LowerCased(b.value);
  key.inputs = {a, b};
  return key;
}

std::string CarrierKeyOrigins::FileChain(const std::string& key, bool again) const {
  const Origin nv_target = Translate(nv_targets_, nv_key_.value);
  if (!again && !nv_key_.value.empty() && nv_target.value == key) {
    return "for nv key " + nv_key_.value + " -> " + key + " (" + nv_target.place + ")" +
           From(nv_key_);
  }
  if (ssv_key_.value == key) return "for ssv key " + key + From(ssv_key_);
  const Origin operator_key = OperatorKey();
  return operator_key.value == key ? "for operator key " + key + From(operator_key)
                                   : "for key " + key;
}

std::string CarrierKeyOrigins::ChainFor(const std::string& path, bool again) const {
  const auto [kind, key] = ParseKeyedPath(path);
  if (kind == "file") return FileChain(key, again);
  for (const auto& [of_kind, property] : kKeyProperties) {
    if (kind != of_kind) continue;
    std::string chain = "for ";
    return chain.append(kind).append(" key ").append(key) + From(PropertyOrigin(property, key));
  }
  return "";
}

}  // namespace extprop
