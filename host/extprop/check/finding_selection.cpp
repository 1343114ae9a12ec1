#include "host/extprop/check/finding_selection.h"

#include <android-base/file.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

// How often a finding is in the baseline, by path, id and message.
using Baseline = std::map<std::tuple<std::string, std::string, std::string>, std::size_t>;

Result<Baseline> ReadBaseline(const std::string& path) {
  Baseline known;
  if (path.empty()) return known;
  std::string text;
  if (!android::base::ReadFileToString(path, &text)) return ErrnoError() << "--baseline " << path;
  try {
    const nlohmann::json document = nlohmann::json::parse(text);
    for (const nlohmann::json& finding : document.at("findings")) {
      ++known[{finding.at("file"), finding.at("id"), finding.at("message")}];
    }
  } catch (const nlohmann::json::exception&) {
    return Error() << "--baseline " << path << ": not what check --json prints";
  }
  return known;
}

bool Has(const std::vector<std::string>& ids, const std::string& id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

// As JSON has it, where bytes that are no UTF-8 are lost.
std::string InJson(const std::string& text) {
  return nlohmann::json::parse(JsonText(text));
}

}  // namespace

Result<std::size_t> Select(const FindingSelection& selection, std::vector<Finding>* findings) {
  Result<Baseline> known = ReadBaseline(selection.baseline);
  if (!known.ok()) return known.error();
  const auto counts_not = [&](const Finding& finding) {
    if (Has(selection.ignore, finding.id)) return true;
    if (!selection.only.empty() && !Has(selection.only, finding.id)) return true;
    const auto old = known->find({InJson(finding.at.path), finding.id, InJson(finding.message)});
    if (old == known->end() || old->second == 0) return false;
    --old->second;
    return true;
  };
  const auto end = std::stable_partition(findings->begin(), findings->end(),
                                         [&](const Finding& each) { return !counts_not(each); });
  const auto left_out = static_cast<std::size_t>(findings->end() - end);
  findings->erase(end, findings->end());
  return left_out;
}

}  // namespace extprop
