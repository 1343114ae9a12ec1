#include "host/extprop/check/findings.h"

#include <android-base/strings.h>

#include <algorithm>

#include "host/extprop/render/terminal.h"

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

const char* StyleOf(const std::string& severity) {
  return severity == "error" ? kBoldRed : severity == "warning" ? kBoldMagenta : kBoldCyan;
}

}  // namespace

void PrintFindings(const DeviceTree& tree, const std::vector<Finding>& findings) {
  for (const Finding& finding : findings) {
    const std::string severity = KindOf(finding).severity;
    const std::string other = GivenPlace(tree, finding.other);
    Print(Visible(GivenPlace(tree, finding.at)) + ": " +
          Coloured(StyleOf(severity), severity + ":") + " " + Visible(finding.message) +
          (finding.other.path.empty() ? "" : " (" + Visible(other) + ")") + " [" + finding.id +
          "]\n");
  }
}

std::string CountFindings(const std::vector<Finding>& findings) {
  std::vector<std::string> counts;
  for (const std::string severity : {"error", "warning", "note"}) {
    const auto count = std::count_if(findings.begin(), findings.end(), [&](const Finding& each) {
      return KindOf(each).severity == severity;
    });
    counts.push_back(Count(static_cast<size_t>(count), severity));
  }
  return android::base::Join(counts, ", ");
}

json FindingsJson(const DeviceTree& tree, const std::vector<Finding>& findings) {
  json list = json::array();
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
