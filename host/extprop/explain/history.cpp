#include "host/extprop/explain/history.h"

#include <android-base/strings.h>

#include <algorithm>
#include <deque>
#include <unordered_map>
#include <utility>

#include "host/extprop/boot/recorder.h"
#include "host/extprop/explain/carrier_key_origin.h"
#include "host/extprop/explain/computed_value.h"
#include "host/extprop/explain/directory_order.h"
#include "host/extprop/explain/read_maps.h"
#include "host/extprop/explain/state_file_origins.h"

namespace extprop {

namespace {

using android::base::StartsWith;

std::string LoaderOf(const Step& step) {
  return (step.post ? "post " : "") + step.name +
         (step.argument.empty() ? "" : "=" + step.argument);
}

std::string LostTo(const Setting& loser, const Setting& winner) {
  std::string how = "overridden by ";
  if (winner.value == loser.value) how = "set again, to the same, by ";
  if (winner.value.empty()) how = "cleared by ";
  return how + winner.place +
         (winner.loader == loser.loader || winner.loader.empty() ? "" : " (" + winner.loader + ")");
}

// Follows a record from its first event to its last.
class Historian {
 public:
  Historian(const BootRecord& record, const IsWanted& wanted)
      : record_(record), wanted_(wanted), carriers_(record.property_files.size()) {
    TakeInitial();
    for (const Step& step : record.steps) {
      loader_ = LoaderOf(step);
      if (step.post) SetDirectly(kRequestProperty, step.name, "posted request", "");
      for (const Event& event : step.events)
        std::visit([&](const auto& what) { Take(what); }, event.what);
      DropPendingMaps();
      ++step_;
    }
  }

  HistoryMap Result() { return std::move(histories_); }

 private:
  // By name, where in its history a map's latest line is.
  using Latest = std::unordered_map<std::string_view, size_t>;

  // What others are computed from, or what carrier keys are, is always followed.
  bool Wants(const std::string& name) {
    const auto [known, first] = is_wanted_.try_emplace(name, false);
    if (first)
      known->second = !wanted_ || wanted_(name) || IsInput(name) || IsCarrierProperty(name);
    return known->second;
  }

  void TakeInitial() {
    for (const Entry& entry : record_.refused)
      SetDirectly(entry.name, entry.value, "system property", entry.refused);
    for (const auto& [name, value] : record_.initial) {
      // init loads the stored ones later, and that is an event.
      const bool stored = StartsWith(name, kStoredPrefix) && !record_.steps.empty();
      if (!stored) SetDirectly(name, value, "system property", "");
    }
  }

  void Take(const LogLine& /*line*/) {}
  void Take(const MountEvent& /*mount*/) {}

  void Take(const PropertySet& set) {
    SetDirectly(set.name, set.value, "set by the library",
                set.refused ? "the property service refused it" : "");
  }

  void Take(const FileEvent& file) {
    if (file.error != 0) return;
    if (file.op == FileOp::kRead) return TakeRead(file);
    if (file.op == FileOp::kWrite) state_files_.TakeWrite(file);
  }

  // The whole content of a state file of the old format is the key.
  void TakeRead(const FileEvent& file) {
    keys_.TakeRead(file);
    const char* property = StateFileOrigins::BareKeyProperty(file.path);
    if (property == nullptr || file.content.empty() || last_map_ == nullptr) return;
    if (record_.property_files[last_file_].path != file.path) return;
    bare_keys_.push_back({last_file_, 1, LineOutcome::kSet, property, file.content, file.content});
    Hold(bare_keys_.back(), nullptr, last_map_);
  }

  void Take(const PropertyLine& line) {
    const size_t outermost_index = OutermostIndex(record_, line.file);
    const PropertyFile& outermost = record_.property_files[outermost_index];
    ReadMap& map = maps_[outermost.map];
    if (map.held.empty()) map.kind = KindOfMap(outermost.path);
    if (outermost_index != last_file_ || last_map_ == nullptr) EnterOutermost(outermost_index);
    last_map_ = &map;
    const bool sets = line.outcome == LineOutcome::kSet || line.outcome == LineOutcome::kReplaced ||
                      line.outcome == LineOutcome::kSameAgain;
    if (!sets && line.outcome != LineOutcome::kFiltered) return;
    const PropertyFile& file = record_.property_files[line.file];
    if (map.kind == ReadMap::Kind::kMapping) {
      const std::string place = file.device_path + ":" + std::to_string(line.line);
      if (sets) keys_.TakeMappingLine(outermost.path, line.name, line.value, place);
      return;
    }
    Hold(line, state_files_.WrittenFrom(file.path), &map);
  }

  void EnterOutermost(size_t index) {
    const std::string& path = record_.property_files[index].path;
    const bool again = last_map_ != nullptr && record_.property_files[last_file_].path == path;
    carriers_[index] = keys_.ChainFor(path, again);
    last_file_ = index;
  }

  static void Hold(const PropertyLine& line, const Setting* written, ReadMap* map) {
    map->lines.push_back({&line, written});
    map->pending = true;
    if (line.outcome != LineOutcome::kFiltered) map->held[line.name] = &line;
  }

  void Take(const HandOver& hand_over) {
    if (hand_over.mode == kStoredProperties) return TakeStored(hand_over);
    ReadMap* map = FindHandedOver(hand_over, &maps_);
    Latest latest;
    if (map != nullptr) latest = AddLines(map, &hand_over);
    std::vector<std::pair<const Entry*, size_t>> taken;
    for (const Entry& entry : hand_over.entries) {
      if (!Wants(entry.name)) continue;
      const size_t index = FindTaken(entry, map, latest);
      taken.emplace_back(&entry, index != kNone ? index : AddComputed(hand_over, entry, latest));
    }
    for (const auto& [entry, index] : taken) Settle(*entry, index);
  }

  void TakeStored(const HandOver& hand_over) {
    const std::string loader = std::exchange(loader_, "");
    for (const Entry& entry : hand_over.entries)
      SetDirectly(entry.name, entry.value, "stored property", entry.refused);
    loader_ = loader;
  }

  // Adds what went into the map since it was handed over last to the histories. Null: it is not
  // handed over.
  Latest AddLines(ReadMap* map, const HandOver* hand_over) {
    Latest latest;
    for (const auto& [line, written] : map->lines) {
      if (!Wants(line->name)) continue;
      const bool filtered = line->outcome == LineOutcome::kFiltered;
      const bool carried = hand_over != nullptr && FindEntry(*hand_over, line->name) != nullptr;
      if (map->kind == ReadMap::Kind::kInfoFile && !carried) continue;
      Setting setting = SettingOf(*line, written);
      if (carried && !filtered) setting.mode = hand_over->mode;
      setting.why = filtered ? "kept out by the filter of the import"
                             : WhyNotHandedOver(OutermostFile(record_, line->file), line->name);
      History& history = histories_[line->name];
      if (!filtered) {
        const auto [before, first] = latest.try_emplace(line->name, history.size());
        if (!first) {
          history[before->second].why = LostTo(history[before->second], setting);
          before->second = history.size();
        }
      }
      history.push_back(std::move(setting));
    }
    if (hand_over != nullptr) MarkDirectoryOrder(*map, latest);
    map->lines.clear();
    map->pending = false;
    return latest;
  }

  Setting SettingOf(const PropertyLine& line, const Setting* written) const {
    Setting setting;
    if (written != nullptr) {
      setting = *written;
    } else {
      SetPlace(record_.property_files[line.file].device_path, line.line, &setting);
      setting.carrier = carriers_[OutermostIndex(record_, line.file)];
    }
    setting.name = line.name;
    setting.value = line.value;
    setting.step = step_;
    setting.loader = loader_;
    return setting;
  }

  std::string WhyNotHandedOver(const PropertyFile& outermost, const std::string& name) const {
    if (StartsWith(outermost.path, "/my_company/") && loader_ == "persist" &&
        StartsWith(name, "ro."))
      return "dropped by the company update: not in mode 1";
    if (name == kCarriedOverName) return "carried over to the carrier image's, and taken out";
    return "read, but not handed over by " + loader_;
  }

  void MarkDirectoryOrder(const ReadMap& map, const Latest& latest) {
    for (const std::vector<ReadLine>& lines : FindOrderDependent(record_, map)) {
      const auto index = latest.find(lines.front().line->name);
      if (index == latest.end()) continue;
      std::vector<std::string> places;
      places.reserve(lines.size());
      for (const ReadLine& read : lines)
        places.push_back(SettingOf(*read.line, read.written).place);
      History& history = histories_[lines.front().line->name];
      Setting& decides = history[index->second];
      // What another source overrides after all depends on nothing.
      if (decides.place != places.back() || decides.mode == kNotHandedOver) continue;
      decides.directory_order = places;
      for (Setting& setting : history) {
        const bool loses = &setting != &decides && setting.step == step_ &&
                           std::find(places.begin(), places.end(), setting.place) != places.end();
        if (loses) setting.why = DependsOnOrder(decides);
      }
    }
  }

  // Returns where in its history the entry's setting is already, if it is.
  size_t FindTaken(const Entry& entry, const ReadMap* map, const Latest& latest) {
    if (map == nullptr) return kNone;
    const auto held = map->held.find(entry.name);
    if (held == map->held.end() || held->second->value != entry.value) return kNone;
    const auto index = latest.find(entry.name);
    if (index != latest.end()) return index->second;
    // The map was handed over before and takes effect once more.
    History& history = histories_[entry.name];
    const std::string place = SettingOf(*held->second, nullptr).place;
    for (size_t i = history.size(); i-- > 0;) {
      if (history[i].place != place || history[i].step != step_) continue;
      if (history[i].won) return i;
      history.push_back(Setting(history[i]));
      return history.size() - 1;
    }
    return kNone;
  }

  size_t AddComputed(const HandOver& hand_over, const Entry& entry, const Latest& latest) {
    const ComputedValue computed = FindComputedValue(hand_over, entry);
    History& history = histories_[entry.name];
    if (computed.rule.empty()) {
      // Read as a property and handed over again, as it was.
      for (size_t i = 0; i < history.size(); ++i) {
        if (history[i].won && history[i].value == entry.value) return i;
      }
    }
    Setting setting = Directly(entry.name, entry.value, computed.rule);
    if (computed.rule.empty()) setting.place = "rule: computed by " + loader_;
    setting.mode = hand_over.mode;
    for (const std::string& names : computed.inputs) {
      Origin input = InputOf(names, latest);
      if (input.value.empty()) continue;
      if (setting.directory_order.empty()) setting.directory_order = input.directory_order;
      setting.inputs.push_back(std::move(input));
    }
    histories_[entry.name].push_back(std::move(setting));
    return histories_[entry.name].size() - 1;
  }

  // What the map in the making holds comes before what is set.
  Origin InputOf(const std::string& names, const Latest& latest) {
    Origin input;
    for (const std::string& name : android::base::Split(names, "|")) {
      const auto line = latest.find(name);
      input = line == latest.end() ? CurrentOrigin(histories_, name)
                                   : OriginOf(histories_[name][line->second]);
      if (!input.value.empty()) break;
    }
    return input;
  }

  void Settle(const Entry& entry, size_t index) {
    History& history = histories_[entry.name];
    if (entry.refused.empty()) return Decide(&history, index);
    history[index].refused = entry.refused;
    history[index].why = "refused: " + entry.refused;
  }

  // Makes that setting the one that the property has its value from.
  static void Decide(History* history, size_t index) {
    Setting& winner = (*history)[index];
    if (winner.won) return;
    for (Setting& setting : *history) {
      if (setting.won) setting.why = LostTo(setting, winner);
      setting.won = false;
    }
    winner.won = true;
    winner.why.clear();
  }

  void SetDirectly(const std::string& name, const std::string& value, const std::string& rule,
                   const std::string& refused) {
    History& history = histories_[name];
    history.push_back(Directly(name, value, rule));
    Settle({name, value, "", refused}, history.size() - 1);
  }

  Setting Directly(const std::string& name, const std::string& value,
                   const std::string& rule) const {
    Setting setting;
    setting.name = name;
    setting.place = "rule: " + rule;
    setting.step = step_;
    setting.loader = loader_;
    setting.mode = kSetDirectly;
    setting.value = value;
    return setting;
  }

  void DropPendingMaps() {
    for (auto& [number, map] : maps_) {
      if (map.pending) AddLines(&map, nullptr);
    }
    maps_.clear();
    last_map_ = nullptr;
  }

  static constexpr size_t kNone = ~size_t{0};

  const BootRecord& record_;
  const IsWanted& wanted_;
  std::unordered_map<std::string_view, bool> is_wanted_;
  HistoryMap histories_;
  CarrierKeyOrigins keys_{histories_};
  StateFileOrigins state_files_{keys_};
  ReadMaps maps_;                      // of the step
  ReadMap* last_map_ = nullptr;        // the one that was read into last
  size_t last_file_ = 0;               // and the outermost file that was
  std::vector<std::string> carriers_;  // by outermost file
  std::deque<PropertyLine> bare_keys_;
  size_t step_ = 0;
  std::string loader_;
};

}  // namespace

HistoryMap Histories(const BootRecord& record) {
  return Histories(record, nullptr);
}

HistoryMap Histories(const BootRecord& record, const IsWanted& wanted) {
  return Historian(record, wanted).Result();
}

}  // namespace extprop
