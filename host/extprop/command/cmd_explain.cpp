#include <android-base/strings.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <set>

#include "host/extprop/boot/boot.h"
#include "host/extprop/carriers/carrier_keys.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/explain/history.h"
#include "host/extprop/explain/unread_settings.h"
#include "host/extprop/render/render_text.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

namespace {

std::string HowHandedOver(const Setting& setting) {
  std::string mode = "mode " + std::to_string(setting.mode);
  if (setting.mode == kFilledMap) mode = "filled map";
  if (setting.mode == kNotHandedOver) mode = "-";
  if (setting.loader.empty()) return setting.mode == kNotHandedOver ? mode : "";
  return setting.mode == kSetDirectly ? setting.loader : setting.loader + ", " + mode;
}

std::string Outcome(const Setting& setting) {
  if (!setting.won) return setting.why;
  if (!setting.directory_order.empty()) return DependsOnOrder(setting);
  return setting.value.empty() ? "clears it" : "wins";
}

void PrintOrigins(const std::string& carrier, const std::vector<Origin>& inputs,
                  const std::string& indent, std::ostream& out) {
  if (!carrier.empty()) out << indent << Visible(carrier) << '\n';
  for (const Origin& input : inputs) {
    out << indent << "from " << Visible(input.name) << ": [" << Visible(input.value) << "]  "
        << Visible(input.place) << '\n';
    PrintOrigins(input.carrier, input.inputs, indent + "  ", out);
  }
}

std::string ValueOf(const History& history) {
  const Setting* winner = Winner(history);
  return winner == nullptr ? "" : winner->value;
}

void Print(const std::string& name, const History& history, std::ostream& out) {
  out << Coloured(kBold, "[" + Visible(name) + "]: " + Shown(ValueOf(history))) << '\n';
  std::array<size_t, 3> widths = {};
  std::vector<std::array<std::string, 3>> rows;
  for (const Setting& setting : history) {
    rows.push_back(
        {Visible(setting.place), "[" + Visible(setting.value) + "]", HowHandedOver(setting)});
    for (size_t i = 0; i < 3; ++i) widths[i] = std::max(widths[i], rows.back()[i].size() + 2);
  }
  for (size_t row = 0; row < rows.size(); ++row) {
    out << (history[row].won ? "  * " : "    ") << std::left;
    for (size_t i = 0; i < 3; ++i) out << std::setw(static_cast<int>(widths[i])) << rows[row][i];
    out << Visible(Outcome(history[row])) << '\n';
    PrintOrigins(history[row].carrier, history[row].inputs, "        ", out);
  }
}

std::string JsonOf(const HistoryMap& asked, const std::vector<std::string>& nearest) {
  json properties = json::array();
  for (const auto& [name, history] : asked) {
    properties.push_back({{"name", name}, {"value", ValueOf(history)}, {"settings", history}});
  }
  return JsonText({{"properties", properties}, {"nearest", nearest}}) + "\n";
}

std::string TextOf(const HistoryMap& asked) {
  std::ostringstream text;
  for (const auto& [name, history] : asked) Print(name, history, text);
  return text.str();
}

// What is asked of the record, and of the search, which goes on beside the boot.
HistoryMap HistoriesOf(const std::string& pattern, const BootRecord& record, StartedBoot* search) {
  HistoryMap asked;
  const auto is_asked = [&](const std::string& name) { return Matches(pattern, name); };
  for (auto& [name, history] : Histories(record, is_asked)) {
    if (is_asked(name)) asked[name] = std::move(history);
  }
  SearchResult found = OrFail(kFailed, FinishSearch(search));
  for (Setting& setting : UnreadSettings(found.lines, record)) {
    asked[setting.name].push_back(std::move(setting));
  }
  WarnOfUnreadable(record, found.unreadable);
  return asked;
}

}  // namespace

int Explain(const Options& options) {
  // Where no DIR is given, the first argument is the name.
  std::error_code ignored;
  if (options.boot.tree == "." && std::filesystem::is_directory(options.name, ignored)) {
    return Fail(kBadInput, options.name + " is a directory: the NAME before it is missing");
  }
  BootPlan plan = OrFail(kBadInput, MakePlan(options.boot));
  plan.lines = true;
  StartedBoot search = OrFail(kFailed, StartSearch(plan, options.name));
  const json told = OrFail(kFailed, RunBoot(plan, [&](const BootRecord& record) -> json {
                             const HistoryMap asked = HistoriesOf(options.name, record, &search);
                             std::set<std::string> others;
                             if (asked.empty()) {
                               for (const auto& [name, history] : Histories(record))
                                 others.insert(name);
                             }
                             return {{"found", !asked.empty()},
                                     {"text", options.json ? JsonOf(asked, {}) : TextOf(asked)},
                                     {"others", others},
                                     {"error", ErrorOf(record)}};
                           }));
  const bool found = told["found"];
  std::vector<std::string> nearest;
  if (!found) {
    // Of the names that the boot knows, and all that are in other files. A line may have none, and
    // a mapping the very name.
    std::set<std::string> names = told["others"];
    names.merge(OrFail(kFailed, FindSurveyedNames(plan)));
    for (const std::string& none : {std::string(), options.name}) names.erase(none);
    nearest = NearestNames(options.name, names);
  }
  if (!options.json) {
    Print(told["text"]);
  } else {
    std::cout << (found ? told["text"].get<std::string>() : JsonOf({}, nearest));
  }
  EndOutput(kFailed);
  RequireWholeBoot(kFailed, told["error"]);
  if (found) return kSuccess;
  std::string nothing = "no file of the partitions, state file or rule sets " + options.name;
  if (!nearest.empty()) nothing += "; the nearest are " + android::base::Join(nearest, ", ");
  return Fail(kFailed, nothing);
}

}  // namespace extprop
