#pragma once

#include <set>
#include <string>
#include <vector>

namespace extprop {

// Returns those of `names` that `name` may be a misspelling of, the nearest first, three at most.
std::vector<std::string> NearestNames(const std::string& name, const std::set<std::string>& names);

}  // namespace extprop
