#include <fnmatch.h>
#include <sys/stat.h>

#include <android-base/strings.h>

#include <algorithm>
#include <array>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>

#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/nearest_names.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/explain/history.h"
#include "host/extprop/explain/property_search.h"
#include "host/extprop/explain/unread_settings.h"
#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

using android::base::Result;
using nlohmann::json;

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
                  const std::string& indent) {
  if (!carrier.empty()) std::cout << indent << Visible(carrier) << '\n';
  for (const Origin& input : inputs) {
    std::cout << indent << "from " << Visible(input.name) << ": [" << Visible(input.value) << "]  "
              << Visible(input.place) << '\n';
    PrintOrigins(input.carrier, input.inputs, indent + "  ");
  }
}

void Print(const std::string& name, const History& history) {
  const char* bold = ColourWanted() ? "\033[1m" : "";
  const char* plain = ColourWanted() ? "\033[0m" : "";
  const Setting* winner = Winner(history);
  const std::string value = winner == nullptr ? "unset" : "[" + Visible(winner->value) + "]";
  std::cout << bold << '[' << Visible(name) << "]: " << value << plain << '\n';
  std::array<size_t, 3> widths = {};
  std::vector<std::array<std::string, 3>> rows;
  for (const Setting& setting : history) {
    rows.push_back(
        {Visible(setting.place), "[" + Visible(setting.value) + "]", HowHandedOver(setting)});
    for (size_t i = 0; i < 3; ++i) widths[i] = std::max(widths[i], rows.back()[i].size() + 2);
  }
  for (size_t row = 0; row < rows.size(); ++row) {
    std::cout << (history[row].won ? "  * " : "    ") << std::left;
    for (size_t i = 0; i < 3; ++i)
      std::cout << std::setw(static_cast<int>(widths[i])) << rows[row][i];
    std::cout << Visible(Outcome(history[row])) << '\n';
    PrintOrigins(history[row].carrier, history[row].inputs, "        ");
  }
}

void PrintJson(const HistoryMap& asked, const std::vector<std::string>& nearest) {
  json properties = json::array();
  for (const auto& [name, history] : asked) {
    const Setting* winner = Winner(history);
    properties.push_back({{"name", name},
                          {"value", winner == nullptr ? "" : winner->value},
                          {"settings", ToJson(history)}});
  }
  std::cout << JsonText({{"properties", properties}, {"nearest", nearest}}) << '\n';
}

bool IsAsked(const std::string& pattern, const std::string& name) {
  return name == pattern || fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

// Where no DIR is given, the first argument is the name.
bool IsForgottenName(const Options& options) {
  struct stat status;
  return options.boot.tree == "." && stat(options.name.c_str(), &status) == 0 &&
         S_ISDIR(status.st_mode);
}

// Of the names that the boot knows, and all that are in files.
std::vector<std::string> Nearest(const std::string& name, const BootPlan& plan,
                                 const BootRecord& record) {
  std::set<std::string> names;
  for (const auto& [known, history] : Histories(record)) names.insert(known);
  Result<PropertySearch> search = PropertySearch::Begin(plan, "*");
  if (search.ok()) {
    for (FoundLine& line : search->Finish({}).lines) names.insert(std::move(line.name));
  }
  return NearestNames(name, names);
}

std::string NothingSets(const std::string& name, bool whole,
                        const std::vector<std::string>& nearest) {
  std::string text = "no file or rule sets " + name;
  if (!whole) text += ", as far as the files below the partitions were looked into";
  if (!nearest.empty()) text += "; the nearest are " + android::base::Join(nearest, ", ");
  return text;
}

}  // namespace

int Explain(const Options& options) {
  if (IsForgottenName(options)) {
    return Fail(kBadInput, options.name + " is a directory: the NAME before it is missing");
  }
  Result<BootPlan> plan = MakePlan(options.boot);
  if (!plan.ok()) return Fail(kBadInput, plan.error().message());
  plan->lines = true;
  Result<PropertySearch> search = PropertySearch::Begin(*plan, options.name);
  if (!search.ok()) return Fail(kFailed, search.error().message());
  Result<BootRecord> record = RunBoot(*plan);
  if (!record.ok()) return Fail(kFailed, record.error().message());
  const FoundLines unread = search->Finish(KnownFiles(*record));

  const auto is_asked = [&](const std::string& name) { return IsAsked(options.name, name); };
  HistoryMap asked;
  for (auto& [name, history] : Histories(*record, is_asked)) {
    if (is_asked(name)) asked[name] = std::move(history);
  }
  for (Setting& setting : UnreadSettings(unread.lines, *record))
    asked[setting.name].push_back(std::move(setting));
  std::vector<std::string> nearest;
  if (asked.empty()) nearest = Nearest(options.name, *plan, *record);
  if (options.json) {
    PrintJson(asked, nearest);
  } else {
    for (const auto& [name, history] : asked) Print(name, history);
  }
  if (!std::cout.flush()) return Fail(kFailed, "cannot write the standard output");
  const int completed = ReportStep(kFailed, *record);
  if (completed != kSuccess || !asked.empty()) return completed;
  return Fail(kFailed, NothingSets(options.name, unread.whole, nearest));
}

}  // namespace extprop
