#pragma once

#include <vector>

#include "host/extprop/boot/boot.h"
#include "host/extprop/check/findings.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// Boots the plan's tree, reads the property files that this boot had no reason to read, and returns
// what came up, in the order of path and line. Overrides between partitions are many and meant, so
// they are told only if asked for. Fails as RunBoot does.
Result<std::vector<Finding>> CheckTree(const BootPlan& plan, bool overrides);

}  // namespace extprop
