#include "host/extprop/check/check.h"

#include <set>

namespace extprop {

namespace {

using android::base::Result;

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

Result<std::vector<Finding>> CheckTree(const BootPlan& plan) {
  BootPlan survey = plan;
  survey.lines = true;
  Result<BootRecord> boot = RunBoot(survey);
  if (!boot.ok()) return boot.error();
  std::set<Finding> findings;
  for (const Step& step : boot->steps) {
    for (const Event& event : step.events) {
      const auto* line = std::get_if<PropertyLine>(&event.what);
      if (line == nullptr || line->outcome != LineOutcome::kNoProperty) continue;
      findings.insert({boot->property_files[line->file].path, line->line,
                       FindKind("not-a-property"),
                       "'" + line->text + "' is no property, comment or import"});
    }
  }
  return std::vector<Finding>(findings.begin(), findings.end());
}

}  // namespace extprop
