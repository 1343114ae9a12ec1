#pragma once

#include <string>
#include <vector>

#include "host/extprop/check/findings.h"
#include "host/extprop/trees/device_tree.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// Prints a line for each, as compilers do. Paths are as the user knows them.
void PrintFindings(const DeviceTree& tree, const std::vector<Finding>& findings);

// Returns how many there are of each severity, such as "1 error, 2 warnings, 0 notes".
std::string CountFindings(const std::vector<Finding>& findings);

json FindingsJson(const DeviceTree& tree, const std::vector<Finding>& findings);

// Returns a log in the Static Analysis Results Interchange Format, version 2.1.0; its paths are
// relative to the tree's directory.
json FindingsSarif(const DeviceTree& tree, const std::vector<Finding>& findings);

}  // namespace extprop
