#include "host/extprop/explain/history.h"

#include <android-base/file.h>
#include <android-base/strings.h>

#include <deque>
#include <utility>

#include "host/extprop/boot/recorder.h"
#include "host/extprop/explain/carrier_key_origins.h"
#include "host/extprop/explain/computed_value.h"
#include "host/extprop/explain/read_maps.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::StartsWith;

// Returns what the map has of the name, null unless a line of it is in the history.
HeldName* FindHeld(std::string_view name, ReadMap* map) {
  if (map == nullptr) return nullptr;
  const auto held = map->names.find(name);
  return held == map->names.end() || held->second.index == kNotInHistory ? nullptr : &held->second;
}

// Follows a record from its first event to its last.
class Historian {
 public:
  Historian(const BootRecord& record, const IsWanted& wanted) : record_(record), wanted_(wanted) {
    for (const Entry& entry : record.refused) SetByRule(entry, "system property");
    for (const auto& [name, value] : record.initial) {
      // init loads the stored ones later, and that is an event.
      const bool stored = StartsWith(name, kStoredPrefix) && !record.steps.empty();
      if (!stored) SetByRule({name, value, "", ""}, "system property");
    }
    for (const Step& step : record.steps) {
      loader_ = TitleOf(step);
      if (step.post) SetByRule({kRequestProperty, step.name, "", ""}, "posted request", loader_);
      for (const Event& event : step.events)
        std::visit([&](const auto& what) { Take(what); }, event.what);
      for (auto& [number, map] : maps_) AddPending(nullptr, &map, &histories_);
      maps_.clear();
      map_ = nullptr;
      ++step_;
    }
  }

  HistoryMap Result() { return std::move(histories_); }

 private:
  // What others are computed from, or what carrier keys are, is always followed.
  bool Wants(const std::string& name) const {
    return !wanted_ || wanted_(name) || IsInput(name) || IsKeyProperty(name);
  }

  void Take(const LogLine& /*line*/) {}
  void Take(const MountEvent& /*mount*/) {}

  void Take(const PropertySet& set) {
    const char* refused = set.refused ? "the property service refused it" : "";
    const Entry entry = {set.name, set.value, set.old, refused};
    AddComputed(FindComputedValue({kSetDirectly, {entry}}, entry), entry, nullptr);
    History& history = histories_[entry.name];
    Decide(entry, history.size() - 1, &history);
  }

  void Take(const FileEvent& file) {
    keys_.TakeFile(file);
    // The whole text of a state file of the old format is the key.
    const char* property = file.op == FileOp::kRead ? BareKeyProperty(file.path) : nullptr;
    if (property == nullptr || file.content.empty() || map_ == nullptr) return;
    if (record_.property_files[outermost_].path != file.path) return;
    bare_keys_.push_back(
        {outermost_, 1, LineOutcome::kSet, property, file.content, file.content, ""});
    Hold(bare_keys_.back());
  }

  void Take(const PropertyLine& line) {
    const size_t outermost = OutermostFile(record_, line.file);
    if (outermost != outermost_ || map_ == nullptr) Enter(outermost);
    if (!Sets(line) && line.outcome != LineOutcome::kFiltered) return;
    if (map_->content != FileContent::kMapping) return Hold(line);
    if (Sets(line)) keys_.TakeMappingLine(line);
  }

  void Enter(size_t outermost) {
    const PropertyFile& file = record_.property_files[outermost];
    const bool again = map_ != nullptr && record_.property_files[outermost_].path == file.path;
    carrier_ = keys_.ChainFor(file.path, again);
    const std::string kind = ParseKeyedPath(file.path).kind;
    directory_ = kind.empty() || kind == "file" ? "" : android::base::Dirname(file.path);
    outermost_ = outermost;
    map_ = &maps_[file.map];
    if (map_->names.empty()) map_->content = ContentOf(file.path);
  }

  void Hold(const PropertyLine& line) {
    const bool filtered = line.outcome == LineOutcome::kFiltered;
    map_->pending = true;
    HeldName& held = map_->names[line.name];
    if (!filtered) {
      held.line = &line;
      held.index = kNotInHistory;
      held.handed_over = false;
    }
    if (!Wants(line.name)) return;
    Setting setting = SettingOf(line);
    setting.why = filtered ? "kept out by the filter of the import" : WhyNotHandedOver(line.name);
    held.pending.push_back({std::move(setting), filtered, outermost_, directory_});
  }

  Setting SettingOf(const PropertyLine& line) const {
    const PropertyFile& file = record_.property_files[line.file];
    const Setting* written = keys_.WrittenFrom(file.path);
    if (written != nullptr) return Named(line.name, line.value, *written);
    Setting setting = Named(line.name, line.value, {});
    // A choice of carrier, which ends in KIND=KEY, wrote one line of the file.
    const std::string& choice = ValueIn(record_.chosen, file.path);
    const KeyedDirectory* keyed = choice.empty() ? nullptr : KeyedBy(line.name);
    if (keyed != nullptr && EndsWith(choice, std::string(" ") + keyed->kind + "=" + line.value)) {
      setting.place = choice;
    } else {
      SetPlace(file.device_path, line.line, &setting);
    }
    setting.carrier = carrier_;
    return setting;
  }

  std::string WhyNotHandedOver(const std::string& name) const {
    if (StartsWith(record_.property_files[outermost_].path, "/my_company/") &&
        loader_ == "persist" && StartsWith(name, "ro."))
      return "dropped by the company update: not in mode 1";
    if (name == kCarriedOverName) return "taken out, as the identity is the carrier image's";
    return "read, but not handed over by " + loader_;
  }

  void Take(const HandOver& hand_over) {
    if (hand_over.mode == kStoredProperties) {
      for (const Entry& entry : hand_over.entries) SetByRule(entry, "stored property");
      return;
    }
    ReadMap* map = FindHandedOver(hand_over, &maps_);
    if (map != nullptr) AddPending(&hand_over, map, &histories_);
    // All are computed before any takes effect.
    std::vector<std::pair<const Entry*, size_t>> settings;
    for (const Entry& entry : hand_over.entries) {
      if (Wants(entry.name)) settings.emplace_back(&entry, IndexOf(hand_over, entry, map));
    }
    for (const auto& [entry, index] : settings) Decide(*entry, index, &histories_[entry->name]);
  }

  // Returns where in its history the setting is that the entry takes effect by; it is added where
  // no line of the map is it.
  size_t IndexOf(const HandOver& hand_over, const Entry& entry, ReadMap* map) {
    History& history = histories_[entry.name];
    HeldName* held = FindHeld(entry.name, map);
    if (held != nullptr && held->line->value == entry.value) {
      // A map that was handed over before takes effect once more.
      if (std::exchange(held->handed_over, true) && !history[held->index].won) {
        history.push_back(Setting(history[held->index]));
        held->index = history.size() - 1;
      }
      return held->index;
    }
    const ComputedValue computed = FindComputedValue(hand_over, entry);
    // Read as a property and handed over again, as it was.
    for (size_t i = 0; i < history.size() && computed.rule.empty(); ++i) {
      if (history[i].won && history[i].value == entry.value) return i;
    }
    AddComputed(computed, entry, map).mode = hand_over.mode;
    return history.size() - 1;
  }

  // The setting is the last of its history.
  Setting& AddComputed(const ComputedValue& computed, const Entry& entry, ReadMap* map) {
    Setting& setting =
        AddByRule(entry, computed.rule.empty() ? "computed by " + loader_ : computed.rule);
    for (const std::string& names : computed.inputs) {
      const Setting* input = InputOf(names, map);
      if (input == nullptr) continue;
      if (setting.directory_order.empty()) setting.directory_order = input->directory_order;
      setting.inputs.push_back(*input);
    }
    return setting;
  }

  // What the map in the making holds comes before what is set. An empty value counts where there is
  // no other name to take.
  const Setting* InputOf(const std::string& names, ReadMap* map) const {
    const bool only_one = names.find('|') == std::string::npos;
    for (const std::string& name : android::base::Split(names, "|")) {
      const HeldName* held = FindHeld(name, map);
      const Setting* input =
          held == nullptr ? Winner(ValueIn(histories_, name)) : &histories_.at(name)[held->index];
      if (input != nullptr && (only_one || !input->value.empty())) return input;
    }
    return nullptr;
  }

  void SetByRule(const Entry& entry, const std::string& rule, const std::string& loader = "") {
    AddByRule(entry, rule).loader = loader;
    History& history = histories_[entry.name];
    Decide(entry, history.size() - 1, &history);
  }

  Setting& AddByRule(const Entry& entry, const std::string& rule) {
    Setting setting = Named(entry.name, entry.value, {});
    setting.place = "rule: " + rule;
    setting.mode = kSetDirectly;
    return histories_[entry.name].emplace_back(std::move(setting));
  }

  Setting Named(const std::string& name, const std::string& value, Setting setting) const {
    setting.name = name;
    setting.value = value;
    setting.step = step_;
    setting.loader = loader_;
    return setting;
  }

  const BootRecord& record_;
  const IsWanted& wanted_;
  HistoryMap histories_;
  CarrierKeyOrigins keys_{record_, histories_};
  std::string loader_;  // of the step
  size_t step_ = 0;
  ReadMaps maps_;           // of the step
  ReadMap* map_ = nullptr;  // the one that was read into last
  size_t outermost_ = 0;    // and the outermost file that was, with the key that it was read for
  std::string carrier_;
  std::string directory_;  // of a carrier key, that it lies in
  std::deque<PropertyLine> bare_keys_;
};

}  // namespace

void SetPlace(const std::string& file, unsigned line, Setting* setting) {
  setting->file = file;
  setting->line = line;
  setting->place = file + ":" + std::to_string(line);
}

void Decide(const Entry& entry, size_t index, History* history) {
  Setting& setting = (*history)[index];
  setting.refused = entry.refused;
  setting.why = entry.refused.empty() ? "" : "refused: " + entry.refused;
  if (!entry.refused.empty() || setting.won) return;
  for (Setting& other : *history) {
    if (other.won) other.why = LostTo(other, setting);
    other.won = false;
  }
  setting.won = true;
}

std::string LostTo(const Setting& loser, const Setting& winner) {
  std::string how = "overridden by ";
  if (winner.value == loser.value) how = "set again, to the same, by ";
  if (winner.value.empty()) how = "cleared by ";
  return how + winner.place +
         (winner.loader == loser.loader || winner.loader.empty() ? "" : " (" + winner.loader + ")");
}

const Setting* Winner(const History& history) {
  for (const Setting& setting : history) {
    if (setting.won && !setting.value.empty()) return &setting;
  }
  return nullptr;
}

std::string DependsOnOrder(const Origin& origin) {
  const std::vector<std::string>& places = origin.directory_order;
  return places.empty() ? ""
                        : "depends on the directory's order: " + android::base::Join(places, ", ");
}

HistoryMap Histories(const BootRecord& record, const IsWanted& wanted) {
  return Historian(record, wanted).Result();
}

}  // namespace extprop
