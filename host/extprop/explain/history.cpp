#include "host/extprop/explain/history.h"

#include <android-base/strings.h>
#include <fnmatch.h>

#include <nlohmann/json.hpp>
#include <utility>

#include "host/extprop/boot/recorder.h"

namespace extprop {

namespace {

constexpr size_t kNone = ~size_t{0};

// What the library computes by itself, told by the hand-over that it comes in. These are names for
// what no file explains, and decide nothing.
struct Rule {
  int mode;
  const char* name;  // a glob
  bool alone;        // nothing else is in the hand-over
  bool unset;        // the property was unset before
  const char* text;
};

constexpr Rule kRules[] = {
    {kFilledMap, "ro.vemra.cust.ver", false, false, "default customisation version"},
    {2, "persist.sys.vemra.company.ota.version.backup", true, false, "company update marker"},
    {2, "*", false, false, "channel restore"},
    {0, "ro.vendor.vemra.exp.version", true, false, "special property"},
    {0, "ro.vemra.customize.display.version_name", true, true, "special property"},
    {0, "ro.vemra.customize.display.version_name", true, false, "display version name"},
    {0, "ro.vemra.internet.force.connect", true, true, "forced connection"},
    {0, "ro.sys.customize.flashback.company", false, true, "no flashback file"},
};

// What a COTA image's identity is carried over to, and from.
constexpr const char* kIdentities[][2] = {
    {"ro.vemra.image.my_carrier.date.utc", "ro.vemra.image.my_bigball.date.utc"},
    {"ro.vemra.image.my_carrier.version_name", "ro.vemra.image.my_bigball.version_name"}};

std::string LoaderOf(const Step& step) {
  return (step.post ? "post " : "") + step.name +
         (step.argument.empty() ? "" : "=" + step.argument);
}

std::string LostTo(const Setting& loser, const Setting& winner) {
  std::string how = "overridden by ";
  if (winner.value == loser.value) how = "set again, to the same, by ";
  if (winner.value.empty()) how = "cleared by ";
  return how + winner.place + (winner.loader == loser.loader ? "" : " (" + winner.loader + ")");
}

// Makes that setting the one that the property has its value from.
void Decide(History* history, size_t index) {
  Setting& winner = (*history)[index];
  for (Setting& setting : *history) {
    if (setting.won) setting.why = LostTo(setting, winner);
    setting.won = false;
  }
  winner.won = true;
  winner.why.clear();
}

class Historian {
 public:
  explicit Historian(const BootRecord& record) : record_(record) {
    for (const auto& [name, value] : record.initial) SetDirectly(name, value, "system property");
    for (const Step& step : record.steps) {
      loader_ = LoaderOf(step);
      if (step.post) SetDirectly(kRequestProperty, step.name, "posted request");
      for (const Event& event : step.events) Take(event);
      DropOpenLines("read, but not handed over by " + loader_);
      ++step_;
    }
  }

  std::map<std::string, History> Result() { return std::move(histories_); }

 private:
  void Take(const Event& event) {
    if (const auto* line = std::get_if<PropertyLine>(&event.what)) return TakeLine(*line);
    if (const auto* map = std::get_if<HandOver>(&event.what)) return TakeHandOver(*map);
    if (const auto* mount = std::get_if<MountEvent>(&event.what)) return TakeMount(*mount);
    const auto* set = std::get_if<PropertySet>(&event.what);
    if (set != nullptr && !set->refused) SetDirectly(set->name, set->value, "set by the library");
  }

  void TakeMount(const MountEvent& mount) {
    if (mount.error == 0) mounts_.insert(mounts_.begin(), {mount.target + "/", mount.source + "/"});
  }

  // Where the device's files have what a bind mount shows.
  std::string BelowMounts(const std::string& path) const {
    for (const auto& [target, source] : mounts_) {
      if (path.compare(0, target.size(), target) == 0) return source + path.substr(target.size());
    }
    return path;
  }

  void TakeLine(const PropertyLine& line) {
    const bool filtered = line.outcome == LineOutcome::kFiltered;
    const bool sets = line.outcome == LineOutcome::kSet || line.outcome == LineOutcome::kReplaced ||
                      line.outcome == LineOutcome::kSameAgain;
    if (!sets && !filtered) return;
    const std::string file = BelowMounts(record_.property_files[line.file].path);
    const std::string place = file + ":" + std::to_string(line.line);
    const size_t index = Add(line.name, line.value, place, kNotHandedOver);
    Setting& setting = histories_[line.name][index];
    setting.file = file;
    setting.line = line.line;
    if (filtered) setting.why = "kept out by the filter of the import";
    if (!filtered) open_[line.name].push_back(index);
  }

  void TakeHandOver(const HandOver& hand_over) {
    for (const Entry& entry : hand_over.entries) {
      TakeEntry(hand_over, entry);
      open_.erase(entry.name);
    }
    // An ordinary hand-over may leave lines to a later one; the company update and what follows it
    // do not.
    if (hand_over.mode > 0) DropOpenLines("dropped by the company update: not in mode 1");
  }

  void TakeEntry(const HandOver& hand_over, const Entry& entry) {
    History& history = histories_[entry.name];
    size_t taken = kNone;
    for (size_t index : open_[entry.name]) {
      if (history[index].value == entry.value) taken = index;
    }
    if (taken == kNone) taken = FindTakenBefore(&history, entry);
    if (taken == kNone) {
      taken = Add(entry.name, entry.value, "rule: " + RuleFor(hand_over, entry), hand_over.mode);
    }
    history[taken].mode = hand_over.mode;
    CloseOpenLines(&history, taken);
    if (!history[taken].won) Decide(&history, taken);
  }

  // A map may be handed over late or twice: the line of this step that filled it then takes effect
  // once more.
  size_t FindTakenBefore(History* history, const Entry& entry) {
    for (size_t i = history->size(); i-- > 0;) {
      Setting setting = (*history)[i];
      if (setting.loader != loader_ || setting.step != step_) break;
      if (setting.file.empty() || setting.mode == kNotHandedOver) continue;
      if (setting.value != entry.value) continue;
      if (setting.won) return i;
      history->push_back(setting);
      return history->size() - 1;
    }
    return kNone;
  }

  // The other lines that went into the map lost to each other and at last to the one taken.
  void CloseOpenLines(History* history, size_t taken) {
    const Setting* next = &(*history)[taken];
    const std::vector<size_t>& open = open_[next->name];
    for (auto index = open.rbegin(); index != open.rend(); ++index) {
      Setting& line = (*history)[*index];
      if (*index == taken) continue;
      line.mode = next->mode;
      if (*index > taken) {
        line.why = "not taken: " + (*history)[taken].place + " is kept";
      } else {
        line.why = LostTo(line, *next);
        next = &line;
      }
    }
  }

  void DropOpenLines(const std::string& why) {
    for (const auto& [name, open] : open_) {
      for (size_t index : open) histories_[name][index].why = why;
    }
    open_.clear();
  }

  std::string RuleFor(const HandOver& hand_over, const Entry& entry) {
    for (const auto& [to, from] : kIdentities) {
      if (entry.name != to) continue;
      for (const Setting& source : histories_[from]) {
        if (source.step != step_ || source.file.empty() || source.value != entry.value) continue;
        return std::string("carried over from ") + from + " at " + source.place;
      }
    }
    for (const Rule& rule : kRules) {
      if (rule.mode != hand_over.mode || fnmatch(rule.name, entry.name.c_str(), 0) != 0) continue;
      if (rule.alone && hand_over.entries.size() != 1) continue;
      if (!rule.unset || entry.old.empty()) return rule.text;
    }
    if (!entry.old.empty() && entry.old == entry.value) return "system property, handed over again";
    return "computed by " + loader_;
  }

  void SetDirectly(const std::string& name, const std::string& value, const std::string& rule) {
    const size_t index = Add(name, value, "rule: " + rule, kSetDirectly);
    Decide(&histories_[name], index);
  }

  size_t Add(const std::string& name, const std::string& value, const std::string& place,
             int mode) {
    Setting setting;
    setting.name = name;
    setting.place = place;
    setting.step = step_;
    setting.loader = loader_;
    setting.mode = mode;
    setting.value = value;
    histories_[name].push_back(std::move(setting));
    return histories_[name].size() - 1;
  }

  const BootRecord& record_;
  std::map<std::string, History> histories_;
  // The lines of the step that no hand-over has held yet.
  std::map<std::string, std::vector<size_t>> open_;
  std::vector<std::pair<std::string, std::string>> mounts_;  // target and source, the latest first
  size_t step_ = 0;
  std::string loader_;
};

}  // namespace

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Origin, name, value, place, inputs)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Setting, name, place, file, line, step, loader, mode, value, won,
                                   why, refused, carrier, directory_order, inputs)

nlohmann::json ToJson(const Setting& setting) {
  return setting;
}

nlohmann::json ToJson(const History& history) {
  return history;
}

std::map<std::string, History> Histories(const BootRecord& record) {
  return Historian(record).Result();
}

std::string DependsOnOrder(const Setting& setting) {
  return setting.directory_order.empty() ? ""
                                         : "depends on the directory's order: " +
                                               android::base::Join(setting.directory_order, ", ");
}

const Setting* Winner(const History& history) {
  for (const Setting& setting : history) {
    if (setting.won && !setting.value.empty()) return &setting;
  }
  return nullptr;
}

}  // namespace extprop
