#include <android-base/file.h>
#include <android-base/stringprintf.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "host/extprop/check/check.h"
#include "host/extprop/check/finding_selection.h"
#include "host/extprop/check/print_findings.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Result;

constexpr int kCouldNotRun = 2;
constexpr const char* kOverrides = "partition-override";

bool Has(const std::vector<std::string>& texts, const std::string& text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

// Whether one of them is as severe as `level` or more.
bool AnyAsSevere(const std::vector<Finding>& findings, const std::string& level) {
  const auto rank = [](const std::string& severity) {
    return severity == "error" ? 2 : severity == "warning" ? 1 : 0;
  };
  return std::any_of(findings.begin(), findings.end(), [&](const Finding& finding) {
    return rank(KindOf(finding).severity) >= rank(level);
  });
}

Result<void> WriteSarif(const std::string& path, const DeviceTree& tree,
                        const std::vector<Finding>& findings) {
  if (path.empty()) return {};
  const std::string text = JsonText(FindingsSarif(tree, findings)) + "\n";
  if (!android::base::WriteStringToFile(text, path)) return ErrnoError() << "--sarif " << path;
  return {};
}

}  // namespace

int Check(const Options& options) {
  Result<BootPlan> plan = MakePlan(options.boot);
  if (!plan.ok()) return Fail(kBadInput, plan.error().message());
  const bool overrides = options.overrides || Has(options.findings.only, kOverrides);
  Result<std::vector<Finding>> findings = CheckTree(*plan, overrides);
  if (!findings.ok()) return Fail(kCouldNotRun, findings.error().message());
  Result<size_t> left_out = Select(options.findings, &*findings);
  if (!left_out.ok()) return Fail(kBadInput, left_out.error().message());
  Result<void> written = WriteSarif(options.sarif, plan->device, *findings);
  if (!written.ok()) return Fail(kCouldNotRun, written.error().message());

  if (options.json) {
    std::cout << JsonText(FindingsJson(plan->device, *findings)) << '\n';
  } else {
    PrintFindings(plan->device, *findings, ColourWanted(), std::cout);
  }
  if (!std::cout.flush()) return Fail(kCouldNotRun, "cannot write the standard output");
  if (!options.json) {
    std::cerr << CountFindings(*findings);
    if (*left_out > 0) std::cerr << "; " << *left_out << " left out";
    std::cerr << '\n';
  }
  return AnyAsSevere(*findings, options.fail_on) ? 1 : 0;
}

std::vector<std::string> FindingIds() {
  std::vector<std::string> ids;
  for (const FindingKind& kind : FindingKinds()) ids.push_back(kind.id);
  return ids;
}

std::string FindingHelp() {
  std::string help = "Findings, as PATH:LINE: SEVERITY: MESSAGE [ID]:\n";
  for (const FindingKind& kind : FindingKinds()) {
    help += android::base::StringPrintf("  %-23s%-9s%s\n", kind.id, kind.severity, kind.help);
  }
  return help;
}

}  // namespace extprop
