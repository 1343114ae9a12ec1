#include "host/extprop/check/findings.h"

#include <android-base/file.h>
#include <android-base/strings.h>

#include <algorithm>
#include <map>
#include <utility>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/render/terminal.h"

namespace extprop {

namespace {

// How often a finding is in the baseline, by path, id and message.
using Baseline = std::map<std::tuple<std::string, std::string, std::string>, std::size_t>;

Result<Baseline> ReadBaseline(const std::string& path) {
  Baseline known;
  if (path.empty()) return known;
  std::string text;
  if (!android::base::ReadFileToString(path, &text, true))
    return ErrnoError() << "--baseline " << path;
  try {
    const json document = json::parse(text);
    for (const json& finding : document.at("findings")) {
      ++known[{finding.at("file"), finding.at("id"), finding.at("message")}];
    }
  } catch (const json::exception&) {
    return Error() << "--baseline " << path << ": not what check --json prints";
  }
  return known;
}

// As JSON has it, where bytes that are no UTF-8 are lost.
std::string InJson(const std::string& text) {
  return json::parse(JsonText(text));
}

}  // namespace

const std::vector<FindingKind>& FindingKinds() {
  static const std::vector<FindingKind> kinds = {
      {"illegal-name", "error", "a property name that init refuses"},
      {"illegal-value", "error", "a value that is too long or no text"},
      {"refused-property", "error", "a property to boot with that init refuses"},
      {"duplicate-name", "warning", "a name set twice in one file"},
      {"not-a-property", "warning", "a line that sets nothing and is no comment"},
      {"byte-order-mark", "error", "a byte order mark, which spoils the first line"},
      {"nul-byte", "error", "a NUL byte, which ends what is read of its line"},
      {"unreadable-file", "error", "a file or directory that cannot be read"},
      {"outgoing-link", "warning", "a symbolic link that leads out of DIR"},
      {"missing-partition", "warning", "a partition without a build.prop"},
      {"missing-import", "warning", "an import of a file that is not there"},
      {"unexpandable-import", "error", "an import whose path needs a property that is not set"},
      {"refused-import", "error", "an import that leads back to its own file, or too deep"},
      {"partition-override", "note", "a value that replaces an earlier partition's; --overrides"},
      {"directory-order", "warning", "files of one directory that set a name differently"},
      {"unmapped-key", "warning", "the device's carrier key, which no mapping file knows"},
      {"missing-target", "warning", "a mapping to what no partition has files for"},
      {"long-nv-key", "warning", "a mapping of more than eight bytes, which no NV key has"},
      {"unknown-carrier", "warning", "a state file's carrier that no partition knows"},
      {"unreached-file", "warning", "a carrier's file that no known key leads to"},
      {"unreachable-directory", "warning", "a carrier directory that no key can reach"},
      {"old-state-file", "warning", "a state file in the old format"},
      {"trailing-space", "warning", "a blank at the end of a bare key"},
      {"line-end-in-key", "error", "a line end that is part of a bare key"},
      {"module-directory", "error", "a COTA module directory that cannot be made"},
      {"failed-bind", "error", "a COTA image or module that cannot be bound"},
      {"unfinished-boot", "error", "a call that ends the boot"},
  };
  return kinds;
}

const FindingKind& KindOf(const Finding& finding) {
  const std::vector<FindingKind>& kinds = FindingKinds();
  return *std::find_if(kinds.begin(), kinds.end(),
                       [&](const FindingKind& kind) { return finding.id == kind.id; });
}

std::string Quoted(const std::string& text) {
  return "'" + WithoutInvisible(text) + "'";
}

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
