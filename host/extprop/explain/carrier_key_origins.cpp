#include "host/extprop/explain/carrier_key_origins.h"

#include <android-base/strings.h>

#include <utility>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/explain/computed_value.h"

namespace extprop {

namespace {

using android::base::EndsWith;

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

void CarrierKeyOrigins::TakeFile(const FileEvent& file) {
  if (file.error != 0) return;
  if (file.op == FileOp::kWrite) TakeWrite(file);
  if (file.op != FileOp::kRead || file.content.empty()) return;
  for (const char* source : kNvSources) {
    if (file.path == source)
      nv_key_ = {"nv key", file.content.substr(0, kNvKeySize), PlaceOf(source), "", {}, {}};
  }
  if (file.path == kSimActionFile) {
    ssv_key_ = {"ssv key", file.content, PlaceOf(file.path), "", {}, {}};
  }
}

std::string CarrierKeyOrigins::PlaceOf(const std::string& file) const {
  return record_.chosen.count(file) != 0 ? record_.chosen.at(file) : file;
}

void CarrierKeyOrigins::TakeWrite(const FileEvent& file) {
  Setting source;
  if (BareKeyProperty(file.path) != nullptr && file.existed) {
    SetPlace(file.device_path, 1, &source);  // it is written anew in the form of today
  } else if (file.path == kForceConnectFile) {
    const Entry forced = {"ro.vemra.internet.force.connect", "", "", ""};
    const ComputedValue computed = FindComputedValue({0, {forced}}, forced);
    source.place = "rule: " + computed.rule;
    for (const std::string& input : computed.inputs) {
      const Setting* winner = Winner(ValueIn(histories_, input));
      if (winner != nullptr) source.inputs.push_back(*winner);
    }
  } else if (file.path == kFirstFile || file.path == kConvertFile) {
    const Setting first = ConvertedFirstKey();
    source.place = "rule: legacy key conversion";
    if (file.path == kFirstFile && !first.file.empty()) SetPlace(first.file, first.line, &source);
    source.carrier = "converted in this boot";
    source.inputs = first.inputs;
  } else {
    return;
  }
  written_[file.path] = source;
}

const Setting* CarrierKeyOrigins::WrittenFrom(const std::string& path) const {
  const auto written = written_.find(path);
  return written == written_.end() ? nullptr : &written->second;
}

const std::string& CarrierKeyOrigins::OutermostPath(const PropertyLine& line) const {
  return record_.property_files[OutermostFile(record_, line.file)].path;
}

// The first file that has a key decides, and its last line.
void CarrierKeyOrigins::TakeMappingLine(const PropertyLine& line) {
  const std::string& file = OutermostPath(line);
  Mapping& mapping = EndsWith(file, kNvMapping) ? nv_targets_ : first_keys_;
  const PropertyLine*& known = mapping.try_emplace(line.name, &line).first->second;
  if (OutermostPath(*known) == file) known = &line;
}

// The line that maps the key, which counts as far as its first NUL byte; empty where none does.
Setting CarrierKeyOrigins::Translate(const Mapping& mapping, const std::string& key) const {
  Setting target;
  const auto found = mapping.find(key.c_str());
  if (key.empty() || found == mapping.end()) return target;
  const PropertyLine& line = *found->second;
  target.value = line.value;
  SetPlace(record_.property_files[line.file].device_path, line.line, &target);
  return target;
}

// What a conversion makes the first key from at this moment: the line of the mapping file, with the
// legacy key as input. Empty where no key is known that maps to one.
Setting CarrierKeyOrigins::ConvertedFirstKey() const {
  const Setting* winner = Winner(ValueIn(histories_, kBootCarrier));
  const Origin boot_carrier = winner == nullptr ? Origin() : Origin(*winner);
  // The operator key is the SSV key where the device has no other.
  for (const Origin& legacy : {boot_carrier, nv_key_, ssv_key_, OperatorKey()}) {
    Setting first = Translate(first_keys_, legacy.value);
    if (first.value.empty()) continue;
    first.inputs = {legacy};
    return first;
  }
  return {};
}

Origin CarrierKeyOrigins::OperatorKey() const {
  const Setting* a = Winner(ValueIn(histories_, kOperatorA));
  const Setting* b = Winner(ValueIn(histories_, kOperatorB));
  if (a == nullptr || b == nullptr) return {};
  const std::string key = LowerCased(a->value) + "-" + LowerCased(b->value);
  return {"operator key", key, "", "", {*a, *b}, {}};
}

// The setting that gave the property that value, also where another has overridden it since or init
// refused it: the library keeps the key.
Origin CarrierKeyOrigins::PropertyOrigin(const std::string& name, const std::string& value) const {
  const History& history = ValueIn(histories_, name);
  for (auto setting = history.rbegin(); setting != history.rend(); ++setting) {
    if (setting->value == value && setting->mode != kNotHandedOver) return *setting;
  }
  return {};
}

std::string CarrierKeyOrigins::FileChain(const std::string& key, bool again) const {
  const Setting nv_target = Translate(nv_targets_, nv_key_.value);
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
  if (kind.empty()) return "";
  return "for " + kind + " key " + key + From(PropertyOrigin(PropertyOf(kind), key));
}

}  // namespace extprop
