#include <algorithm>
#include <iostream>

#include "host/extprop/check/checks.h"
#include "host/extprop/check/findings.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/terminal.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

namespace {

// Whether one of them is as severe as `level` or more.
bool AnyAsSevere(const std::vector<Finding>& findings, const std::string& level) {
  const auto rank = [](const std::string& severity) {
    return severity == "error" ? 2 : severity == "warning" ? 1 : 0;
  };
  return std::any_of(findings.begin(), findings.end(), [&](const Finding& finding) {
    return rank(KindOf(finding).severity) >= rank(level);
  });
}

}  // namespace

int Check(const Options& options) {
  const BootPlan plan = OrFail(kBadInput, MakePlan(options.boot));
  RefuseInside("--sarif", options.sarif, plan);
  const bool overrides = options.overrides || Has(options.findings.only, "partition-override");
  std::vector<Finding> findings = OrFail(kTrouble, CheckTree(plan, overrides));
  const size_t left_out = OrFail(kBadInput, Select(options.findings, &findings));
  if (!options.sarif.empty()) {
    const std::string sarif = JsonText(FindingsSarif(plan.device, findings));
    WriteOutput("--sarif", options.sarif, sarif + "\n");
  }
  if (options.json) {
    std::cout << JsonText(FindingsJson(plan.device, findings)) << '\n';
  } else {
    PrintFindings(plan.device, findings);
  }
  EndOutput(kTrouble);
  if (!options.json) {
    std::cerr << CountFindings(findings);
    if (left_out > 0) std::cerr << "; " << left_out << " left out";
    std::cerr << '\n';
  }
  return AnyAsSevere(findings, options.fail_on) ? kDifferent : kSame;
}

}  // namespace extprop
