#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "host/extprop/boot/boot.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/explain/history.h"
#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

using android::base::Result;
using nlohmann::json;

std::string HowHandedOver(const Setting& setting) {
  std::string mode = "mode " + std::to_string(setting.mode);
  if (setting.mode == kFilledMap) mode = "filled map";
  if (setting.mode == kNotHandedOver) mode = "-";
  if (setting.mode == kSetDirectly) return setting.loader;
  return setting.loader + ", " + mode;
}

std::string Outcome(const Setting& setting) {
  if (!setting.won) return setting.why;
  return setting.value.empty() ? "clears it" : "wins";
}

void Print(const std::string& name, const std::vector<Setting>& history) {
  const char* bold = ColourWanted() ? "\033[1m" : "";
  const char* plain = ColourWanted() ? "\033[0m" : "";
  const Setting* winner = Winner(history);
  const std::string value = winner == nullptr ? "unset" : "[" + Visible(winner->value) + "]";
  std::cout << bold << '[' << Visible(name) << "]: " << value << plain
            << (history.empty() ? ": no file or rule sets it\n" : "\n");
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
    std::cout << Outcome(history[row]) << '\n';
  }
}

}  // namespace

int Explain(const Options& options) {
  Result<BootPlan> plan = MakePlan(options.boot);
  if (!plan.ok()) return Fail(kBadInput, plan.error().message());
  plan->lines = true;
  Result<BootRecord> record = RunBoot(*plan);
  if (!record.ok()) return Fail(kFailed, record.error().message());

  std::map<std::string, std::vector<Setting>> histories = Histories(*record);
  for (auto entry = histories.begin(); entry != histories.end();) {
    const bool asked =
        entry->first == options.name || fnmatch(options.name.c_str(), entry->first.c_str(), 0) == 0;
    entry = asked ? std::next(entry) : histories.erase(entry);
  }
  if (histories.empty()) histories[options.name];
  if (options.json) {
    json properties = json::array();
    for (const auto& [name, history] : histories) {
      const Setting* winner = Winner(history);
      properties.push_back({{"name", name},
                            {"value", winner == nullptr ? "" : winner->value},
                            {"settings", ToJson(history)}});
    }
    std::cout << JsonText({{"properties", properties}}) << '\n';
  } else {
    for (const auto& [name, history] : histories) Print(name, history);
  }
  if (!std::cout.flush()) return Fail(kFailed, "cannot write the standard output");
  return ReportStep(kFailed, *record);
}

}  // namespace extprop
