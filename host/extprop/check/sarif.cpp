#include <android-base/stringprintf.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

#include "host/extprop/check/findings.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

namespace {

constexpr const char* kTreeBase = "DIR";
constexpr const char* kManual = "man:extprop(1)";
constexpr const char* kSchema = "https://json.schemastore.org/sarif-2.1.0.json";

// A path as a URI may have it.
std::string Escaped(const std::string& path) {
  std::string uri;
  for (const char byte : path) {
    const auto code = static_cast<unsigned char>(byte);
    if (isalnum(code) != 0 || strchr("/-._~", byte) != nullptr) {
      uri += byte;
    } else {
      uri += android::base::StringPrintf("%%%02X", static_cast<unsigned>(code));
    }
  }
  return uri;
}

// Of what is no line, the beginning is shown: viewers want a line.
json LocationOf(const Place& place) {
  const json artifact = {{"uri", Escaped(place.path.substr(1))}, {"uriBaseId", kTreeBase}};
  const json region = {{"startLine", std::max<size_t>(place.line, 1)}};
  return {{"physicalLocation", {{"artifactLocation", artifact}, {"region", region}}}};
}

// "illegal-name" as "IllegalName".
std::string NameOf(const std::string& id) {
  std::string name;
  for (size_t i = 0; i < id.size(); ++i) {
    if (id[i] == '-') continue;
    const bool starts_word = i == 0 || id[i - 1] == '-';
    name += starts_word ? static_cast<char>(toupper(id[i])) : id[i];
  }
  return name;
}

json Rules() {
  json rules = json::array();
  for (const FindingKind& kind : FindingKinds()) {
    std::string text = kind.help;
    text[0] = static_cast<char>(toupper(text[0]));
    text += '.';
    rules.push_back({{"id", kind.id},
                     {"name", NameOf(kind.id)},
                     {"shortDescription", {{"text", text}}},
                     {"fullDescription", {{"text", text}}},
                     {"help", {{"text", text}}},
                     {"messageStrings", {{"default", {{"text", "{0}."}}}}},
                     {"defaultConfiguration", {{"level", kind.severity}}}});
  }
  return rules;
}

json ResultOf(const Finding& finding) {
  json result = {{"ruleId", finding.id},
                 {"ruleIndex", &KindOf(finding) - FindingKinds().data()},
                 {"level", KindOf(finding).severity},
                 {"message", {{"id", "default"}, {"arguments", {finding.message}}}}};
  if (finding.at.path[0] == '/') result["locations"] = {LocationOf(finding.at)};
  if (!finding.other.path.empty()) {
    json related = LocationOf(finding.other);
    related["id"] = 1;
    result["relatedLocations"] = {related};
  }
  return result;
}

}  // namespace

json FindingsSarif(const DeviceTree& tree, const std::vector<Finding>& findings) {
  json results = json::array();
  for (const Finding& finding : findings) results.push_back(ResultOf(finding));
  std::string base = std::filesystem::absolute(tree.directory).lexically_normal();
  if (base.back() != '/') base += '/';
  const json driver = {{"name", "extprop"},
                       {"informationUri", kManual},
                       {"semanticVersion", EXTPROP_VERSION},
                       {"rules", Rules()}};
  return {{"$schema", kSchema},
          {"version", "2.1.0"},
          {"runs",
           {{{"tool", {{"driver", driver}}},
             {"originalUriBaseIds", {{kTreeBase, {{"uri", "file://" + Escaped(base)}}}}},
             {"columnKind", "utf16CodeUnits"},
             {"results", results}}}}};
}

}  // namespace extprop
