#include "host/extprop/check/check.h"

#include <clocale>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "host/extprop/boot/in_tree.h"
#include "host/extprop/check/check_context.h"
#include "host/platform/system_properties.h"

namespace extprop {

namespace {

using android::base::Result;
using nlohmann::json;

constexpr Check kChecks[] = {CheckPropertyFiles,      CheckPartitions, CheckMappedKeys,
                             CheckCarrierDirectories, CheckStateFiles, CheckCotaInfoFiles};

// What the checks look at: each partition by itself, then the boot.
Result<BootRecord> Survey(const BootPlan& plan, const LibraryFunctions& functions) {
  BootPlan survey = plan;
  survey.attribute = true;
  survey.steps.clear();
  for (const std::string& root : *functions.ExtensionPartitionRoots) {
    survey.steps.push_back({FindLoader("partition", true), root});
  }
  survey.steps.insert(survey.steps.end(), plan.steps.begin(), plan.steps.end());
  return RunBoot(survey);
}

const FindingKind* FindKind(const std::string& id) {
  for (const FindingKind& kind : FindingKinds()) {
    if (id == kind.id) return &kind;
  }
  return nullptr;
}

}  // namespace

const std::vector<FindingKind>& FindingKinds() {
  static const std::vector<FindingKind> kinds = {
      {"illegal-name", "error", "a property name that init refuses"},
      {"illegal-value", "error", "a value that is too long or no text"},
      {"duplicate-name", "warning", "a name set twice in one file"},
      {"not-a-property", "warning", "a line that sets nothing and is no comment"},
      {"unreadable-file", "error", "a property file or import that cannot be read"},
      {"missing-partition", "warning", "a partition without a readable build.prop"},
      {"missing-import", "warning", "an import of a file that is not there"},
      {"unexpandable-import", "error", "an import whose path needs a property that is not set"},
      {"refused-import", "error", "an import that leads back to its own file, or too deep"},
      {"partition-override", "note", "a value that replaces the one of an earlier partition"},
      {"unmapped-key", "warning", "a carrier key that no mapping file knows"},
      {"unreachable-directory", "warning", "a carrier directory that no key can reach"},
      {"old-state-file", "warning", "a state file in the old format"},
      {"trailing-space", "warning", "white space at the end of a line or key in a state file"},
      {"unread-key", "warning", "a key in a COTA info file that changes nothing"},
      {"module-directory", "error", "a COTA module directory outside the allowed roots"},
      {"failed-bind", "error", "a COTA module that cannot be bound"},
  };
  return kinds;
}

CheckContext::CheckContext(const BootPlan& the_plan, const BootRecord& the_boot, Factory factory,
                           const LibraryFunctions& functions)
    : plan(the_plan),
      boot(the_boot),
      library(functions),
      service_(factory(kLibraryName)),
      recorder_(Recorder::Start(the_plan.properties)) {}

void CheckContext::Report(const char* id, const std::string& path, size_t line,
                          const std::string& message) {
  namespace fs = std::filesystem;
  std::error_code error;  // a link may lead elsewhere outside the private root
  const fs::path directory = fs::canonical(fs::path(path).parent_path(), error);
  const std::string resolved = error ? path : (directory / fs::path(path).filename()).string();
  findings.insert({resolved, line, FindKind(id), message});
}

std::vector<Event> CheckContext::Call(const char* loader, const std::string& argument,
                                      const Properties& set) {
  device::ClearProperties();
  for (const Properties* properties : {&plan.properties, &set}) {
    for (const auto& [name, value] : *properties) device::ApplyProperty(name, value);
  }
  return Observe([&] {
    try {
      FindLoader(loader, true)->call(service_, argument, Recorder::OnHandOver);
    } catch (const std::exception&) {
      // What it did until then is what there is to see.
    }
  });
}

Result<std::vector<Finding>> CheckTree(const BootPlan& plan) {
  Result<Factory> factory = LoadLibrary(plan.library);
  if (!factory.ok()) return factory.error();
  Result<LibraryFunctions> functions = FindLibraryFunctions(*factory);
  if (!functions.ok()) return functions.error();
  Result<BootRecord> boot = Survey(plan, *functions);
  if (!boot.ok()) return boot.error();

  // As init's, in which text is UTF-8; loaded before the private root hides it.
  setlocale(LC_CTYPE, "C.UTF-8");
  Result<json> found = RunInTree(plan.tree, [&]() -> Result<json> {
    CheckContext context(plan, *boot, *factory, *functions);
    for (const Check check : kChecks) {
      Result<void> done = check(&context);
      if (!done.ok()) return done.error();
    }
    json list = json::array();
    for (const Finding& finding : context.findings) {
      list.push_back({finding.path, finding.line, finding.kind->id, finding.message});
    }
    return list;
  });
  if (!found.ok()) return found.error();
  std::vector<Finding> findings;
  for (const json& each : *found) {
    findings.push_back({each[0], each[1], FindKind(each[2]), each[3]});
  }
  return findings;
}

}  // namespace extprop
