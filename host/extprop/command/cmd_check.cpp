#include <android-base/stringprintf.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "host/extprop/check/check.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

using android::base::Result;

constexpr int kCouldNotRun = 2;

bool IsError(const Finding& finding) {
  return finding.kind->severity == std::string("error");
}

// The path in the tree that was given, which is what an editor can open.
std::string GivenPath(const std::string& tree, const Finding& finding) {
  if (finding.path[0] != '/') return finding.path;
  return (tree.back() == '/' ? tree.substr(0, tree.size() - 1) : tree) + finding.path;
}

void PrintText(const std::string& tree, const std::vector<Finding>& findings) {
  const char* colour_end = ColourWanted() ? "\033[0m" : "";
  for (const Finding& finding : findings) {
    const char* colour = !ColourWanted() ? "" : IsError(finding) ? "\033[31m" : "\033[33m";
    std::cout << Visible(GivenPath(tree, finding)) << ':';
    if (finding.line != 0) std::cout << finding.line << ':';
    std::cout << ' ' << colour << finding.kind->severity << ':' << colour_end << ' '
              << Visible(finding.message) << " [" << finding.kind->id << "]\n";
  }
}

void PrintJson(const std::string& tree, const std::vector<Finding>& findings) {
  nlohmann::json list = nlohmann::json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"path", GivenPath(tree, finding)},
                    {"line", finding.line},
                    {"severity", finding.kind->severity},
                    {"message", finding.message},
                    {"id", finding.kind->id}});
  }
  std::cout << JsonText({{"findings", list}}) << '\n';
}

}  // namespace

int Check(const Options& options) {
  Result<BootPlan> plan = MakePlan(options.boot);
  if (!plan.ok()) return Fail(kBadInput, plan.error().message());
  Result<std::vector<Finding>> findings = CheckTree(*plan);
  if (!findings.ok()) return Fail(kCouldNotRun, findings.error().message());
  (options.json ? PrintJson : PrintText)(plan->tree, *findings);
  if (!std::cout.flush()) return Fail(kCouldNotRun, "cannot write the standard output");
  return std::any_of(findings->begin(), findings->end(), IsError) ? 1 : 0;
}

std::string FindingHelp() {
  std::string help = "Findings, as PATH:LINE: SEVERITY: MESSAGE [ID]:\n";
  for (const FindingKind& kind : FindingKinds()) {
    help += android::base::StringPrintf("  %-23s%-9s%s\n", kind.id, kind.severity, kind.help);
  }
  return help;
}

}  // namespace extprop
