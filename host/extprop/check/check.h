#pragma once

#include <cstddef>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"

namespace extprop {

// A kind of finding. `severity` is "error", "warning" or "note".
struct FindingKind {
  const char* id;
  const char* severity;
  const char* help;
};

// All kinds. Docs and other programs may rely on their ids.
const std::vector<FindingKind>& FindingKinds();

// What stands for a file where the properties that the device boots with are meant, and where the
// boot itself is.
constexpr const char* kPropertiesPath = "<properties>";
constexpr const char* kBootPath = "<boot>";

// A line of a file on the device. `line` counts from 1 and is 0 where the whole of the path is
// meant.
struct Place {
  std::string path;
  std::size_t line = 0;
};

// One thing in a device's files that is wrong or worth knowing.
struct Finding {
  Place at;
  std::string id;
  std::string message;  // the same wherever in a file the lines are
  Place other;          // a second place that the message speaks of; no path where there is none

  bool operator<(const Finding& than) const {
    return std::tie(at.path, at.line, id, message, other.path, other.line) <
           std::tie(than.at.path, than.at.line, than.id, than.message, than.other.path,
                    than.other.line);
  }
};

const FindingKind& KindOf(const Finding& finding);

constexpr auto FieldsOf(const Place*) {
  return std::make_tuple(std::pair("path", &Place::path), std::pair("line", &Place::line));
}
constexpr auto FieldsOf(const Finding*) {
  return std::make_tuple(std::pair("at", &Finding::at), std::pair("id", &Finding::id),
                         std::pair("message", &Finding::message),
                         std::pair("other", &Finding::other));
}

// Boots the plan's tree, reads the property files that this boot had no reason to read, and returns
// what came up, in the order of path and line. Overrides between partitions are many and meant, so
// they are told only if asked for. Fails as RunBoot does.
android::base::Result<std::vector<Finding>> CheckTree(const BootPlan& plan, bool overrides);

}  // namespace extprop
