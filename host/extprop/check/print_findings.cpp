#include "host/extprop/check/print_findings.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

// What an editor can open.
std::string GivenPath(const DeviceTree& tree, const std::string& path) {
  return path.empty() || path[0] != '/' ? path : AsGiven(tree, path);
}

std::string GivenPlace(const DeviceTree& tree, const Place& place) {
  const std::string path = GivenPath(tree, place.path);
  return place.line == 0 ? path : path + ":" + std::to_string(place.line);
}

const char* ColourOf(const std::string& severity) {
  return severity == "error" ? "\033[1;31m" : severity == "warning" ? "\033[1;35m" : "\033[1;36m";
}

}  // namespace

void PrintFindings(const DeviceTree& tree, const std::vector<Finding>& findings, bool colour,
                   std::ostream& out) {
  for (const Finding& finding : findings) {
    const std::string severity = KindOf(finding).severity;
    out << Visible(GivenPlace(tree, finding.at)) << ": " << (colour ? ColourOf(severity) : "")
        << severity << ':' << (colour ? "\033[0m" : "") << ' ' << Visible(finding.message);
    if (!finding.other.path.empty()) {
      out << " (" << Visible(GivenPlace(tree, finding.other)) << ")";
    }
    out << " [" << finding.id << "]\n";
  }
}

std::string CountFindings(const std::vector<Finding>& findings) {
  std::string counts;
  for (const std::string severity : {"error", "warning", "note"}) {
    const auto count = std::count_if(findings.begin(), findings.end(), [&](const Finding& each) {
      return KindOf(each).severity == severity;
    });
    counts += (counts.empty() ? "" : ", ") + std::to_string(count) + " " + severity;
    if (count != 1) counts += "s";
  }
  return counts;
}

nlohmann::json FindingsJson(const DeviceTree& tree, const std::vector<Finding>& findings) {
  nlohmann::json list = nlohmann::json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"path", GivenPath(tree, finding.at.path)},
                    {"line", finding.at.line},
                    {"file", finding.at.path},
                    {"other", GivenPlace(tree, finding.other)},
                    {"severity", KindOf(finding).severity},
                    {"message", finding.message},
                    {"id", finding.id}});
  }
  return {{"findings", list}};
}

}  // namespace extprop
