#include <android-base/strings.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "host/extprop/carriers/carrier_keys.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/explain/compare.h"
#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

using android::base::Result;
using nlohmann::json;

struct Column {
  CarrierKey key;
  std::vector<Difference> differences;  // of the default, and of the boot with the key
};

// What is set only to choose the carrier is no result.
Result<Column> BootWith(const CarrierKey& key, BootPlan plan, const BootRecord& by_default) {
  Result<void> in_force = PutInForce({{key.kind, key.name}}, &plan);
  if (!in_force.ok()) return in_force.error();
  Result<BootRecord> record = RunBoot(plan);
  if (!record.ok()) return record.error();
  Column column{key, Compare(by_default, *record)};
  const auto chosen = [&](const Difference& found) {
    const auto given = plan.properties.find(found.name);
    return given != plan.properties.end() && given->second == found.b.value;
  };
  auto& differences = column.differences;
  differences.erase(std::remove_if(differences.begin(), differences.end(), chosen),
                    differences.end());
  return column;
}

std::string Shown(const std::string& value) {
  return value.empty() ? "unset" : "[" + Visible(value) + "]";
}

void PrintText(const Column& column) {
  const auto& [key, differences] = column;
  const char* bold = ColourWanted() ? "\033[1m" : "";
  const char* plain = ColourWanted() ? "\033[0m" : "";
  std::cout << bold << key.kind << ' ' << Visible(key.name);
  if (!key.target.empty() && key.name != key.target) std::cout << " -> " << Visible(key.target);
  std::cout << plain << '\n';
  for (const std::string& source : key.sources) std::cout << "  " << Visible(source) << '\n';
  if (differences.empty()) std::cout << "    as by default\n";
  for (const auto& [name, by_default, with_key] : differences) {
    std::cout << "    [" << Visible(name) << "]: " << Shown(with_key.value) << "  default "
              << Shown(by_default.value) << (with_key.place.empty() ? "" : "  ")
              << Visible(with_key.place) << '\n';
  }
}

}  // namespace

int Carriers(const Options& options) {
  Result<BootPlan> plan = MakePlan(options.boot);
  if (!plan.ok()) return Fail(kBadInput, plan.error().message());
  Result<std::vector<CarrierKey>> keys = FindCarrierKeys(*plan);
  if (!keys.ok()) return Fail(kFailed, keys.error().message());
  plan->lines = true;
  Result<BootRecord> by_default = RunBoot(*plan);
  if (!by_default.ok()) return Fail(kFailed, by_default.error().message());

  json carriers = json::array();
  for (const CarrierKey& key : *keys) {
    if (!key.listed || !key.never.empty()) continue;
    Result<Column> column = BootWith(key, *plan, *by_default);
    if (!column.ok()) return Fail(kFailed, column.error().message());
    if (!options.json) PrintText(*column);
    carriers.push_back(ToJson(key));
    carriers.back()["differences"] = ToJson(column->differences);
  }
  if (options.json) std::cout << JsonText({{"carriers", carriers}}) << '\n';
  if (!std::cout.flush()) return Fail(kFailed, "cannot write the standard output");
  return ReportStep(kFailed, *by_default);
}

}  // namespace extprop
