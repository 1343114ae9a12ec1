#pragma once

#include <cstddef>
#include <string>
#include <tuple>
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

// One thing in a device's files that is wrong or worth knowing.
struct Finding {
  std::string path;      // on the device, or "<properties>" for one that it boots with
  std::size_t line = 0;  // from 1; 0 where the whole of the path is meant
  const FindingKind* kind = nullptr;
  std::string message;

  bool operator<(const Finding& other) const {
    return std::tie(path, line, kind, message) <
           std::tie(other.path, other.line, other.kind, other.message);
  }
};

// Boots the plan's tree and tries its files, and returns what came up, in the order of path and
// line. Fails as RunBoot does.
android::base::Result<std::vector<Finding>> CheckTree(const BootPlan& plan);

}  // namespace extprop
