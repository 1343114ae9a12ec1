#include <iostream>
#include <nlohmann/json.hpp>

#include "host/extprop/boot/library_functions.h"
#include "host/extprop/carriers/carrier_table.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/expect/check_expectations.h"
#include "host/extprop/render/terminal.h"

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Unmet, path, line, id, name, expected, value, place, note,
                                   sections)

namespace {

using android::base::Result;
using nlohmann::json;

constexpr int kUnmet = 1;
constexpr int kTrouble = 2;
constexpr size_t kSectionsShown = 3;

std::string Message(const Unmet& unmet) {
  if (unmet.name.empty()) return unmet.note + "; its section is not checked";
  std::string message = "[" + unmet.name + "] is ";
  message += unmet.value.empty() ? "unset" : "[" + unmet.value + "]";
  if (unmet.expected.empty()) {
    message += ", not unset";
  } else {
    message +=
        unmet.expected == kAnyValue ? ", not set to a value" : ", not [" + unmet.expected + "]";
  }
  for (size_t i = 0; !unmet.in_all && i < unmet.sections.size() && i < kSectionsShown; ++i) {
    message += (i == 0 ? " with [" : ", [") + unmet.sections[i] + "]";
  }
  if (!unmet.in_all && unmet.sections.size() > kSectionsShown) {
    message += " and " + std::to_string(unmet.sections.size() - kSectionsShown) + " more";
  }
  if (!unmet.place.empty()) {
    message += (unmet.value.empty() ? "; cleared by " : "; set by ") + unmet.place;
  }
  return message + (unmet.note.empty() ? "" : "; " + unmet.note);
}

json ToJson(const ExpectationResult& result) {
  json all = {{"boots", result.boots}, {"expectations", result.expectations}};
  all["unmet"] = json::array();
  for (const Unmet& unmet : result.unmet) {
    all["unmet"].push_back(unmet);
    all["unmet"].back()["message"] = Message(unmet);
  }
  return all;
}

void PrintText(const ExpectationResult& result) {
  const char* red = ColourWanted() ? "\033[1;31m" : "";
  const char* plain = ColourWanted() ? "\033[0m" : "";
  for (const Unmet& unmet : result.unmet) {
    std::cout << Visible(unmet.path) << ':' << unmet.line << ": " << red << "error:" << plain << ' '
              << Visible(Message(unmet)) << " [" << unmet.id << "]\n";
  }
}

std::string Count(size_t number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

// The names that something on the device sets are what a file is to hold; what it only boots with
// is not.
bool IsSetByDevice(const Ending& ending) {
  return !ending.value.empty() && !ending.loader.empty();
}

// What choosing a carrier sets by itself differs from key to key without anybody's doing.
std::set<std::string> NamesOfChoices(const BootPlan& plan, const CarrierTable& table) {
  std::set<std::string> names;
  for (const CarrierColumn& column : table.columns) {
    BootPlan chosen = plan;
    if (!PutInForce({{column.key.kind, column.key.name}}, &chosen).ok()) continue;
    for (const auto& [name, value] : chosen.properties) {
      const auto before = plan.properties.find(name);
      if (before == plan.properties.end() || before->second != value) names.insert(name);
    }
  }
  return names;
}

int WriteExpectations(const BootPlan& plan, const Options& options) {
  Result<CarrierTable> table = FillCarrierTable(plan, options.boot.carriers, options.jobs);
  if (!table.ok()) return Fail(kTrouble, table.error().message());
  const std::set<std::string> varying = VaryingNames(*table);
  const std::set<std::string> chosen = NamesOfChoices(plan, *table);
  std::cout << "# What extprop expect --write found. Check with the same options.\n\n"
               "# On every device of this build:\n";
  for (const auto& [name, ending] : table->by_default) {
    const bool varies = varying.count(name) != 0 || chosen.count(name) != 0;
    if (varies || !IsSetByDevice(ending)) continue;
    std::cout << ExpectationLine(name, ending.value) << '\n';
  }
  if (!varying.empty()) std::cout << "\n[default]\n";
  for (const std::string& name : varying) {
    const auto ending = table->by_default.find(name);
    const bool is_set = ending != table->by_default.end();
    std::cout << ExpectationLine(name, is_set ? ending->second.value : "") << '\n';
  }
  for (const CarrierColumn& column : table->columns) {
    const std::string title = SectionLine({column.key.kind, column.key.name});
    if (title.empty()) {
      Fail(kSuccess, "warning: left out: no section can name the key " + column.key.name);
      continue;
    }
    std::cout << '\n' << title << '\n';
    for (const auto& [name, ending] : column.differences) {
      std::cout << ExpectationLine(name, ending.value) << '\n';
    }
  }
  return std::cout.flush() ? kSuccess : Fail(kTrouble, "cannot write the standard output");
}

}  // namespace

int Expect(const Options& options) {
  BootOptions device = options.boot;
  device.carriers.clear();
  Result<BootPlan> plan = MakePlan(device);
  if (!plan.ok()) return Fail(kBadInput, plan.error().message());
  if (options.write == !options.expectation_files.empty()) {
    return Fail(kBadInput, "name a FILE of expectations, or print one with --write");
  }
  if (options.write) return WriteExpectations(*plan, options);

  Result<Factory> factory = LoadLibrary(plan->library);
  if (!factory.ok()) return Fail(kTrouble, factory.error().message());
  Expectations expectations;
  std::vector<std::string> errors;
  for (const std::string& path : options.expectation_files) {
    const auto found =
        ReadExpectations(path, FindLibraryFunctions(*factory).IsLegalPropertyName, &expectations);
    errors.insert(errors.end(), found.begin(), found.end());
  }
  for (const std::string& error : errors) std::cerr << Visible(error) << '\n';
  if (!errors.empty()) return kBadInput;

  Result<ExpectationResult> result =
      CheckExpectations(*plan, options.boot.carriers, expectations, options.jobs);
  if (!result.ok()) return Fail(kTrouble, result.error().message());
  if (options.json) {
    std::cout << JsonText(ToJson(*result)) << '\n';
  } else {
    PrintText(*result);
  }
  if (!std::cout.flush()) return Fail(kTrouble, "cannot write the standard output");
  for (const std::string& error : result->errors) Fail(kTrouble, error);
  if (!result->errors.empty()) return kTrouble;
  if (!options.json) {
    std::cerr << Count(result->expectations, "expectation") << ", " << Count(result->boots, "boot")
              << ": " << Count(result->unmet.size(), "error") << '\n';
  }
  return result->unmet.empty() ? kSuccess : kUnmet;
}

}  // namespace extprop
