#pragma once

#include <optional>
#include <string>
#include <vector>

#include "extproperty/init_extension_property.h"
#include "host/platform/system_properties.h"

// What the fuzz targets share. Each runs in an empty private root, with its log lines dropped after
// they were composed.
namespace fuzz {

// Tries one input, cut at each "|" into six pieces; each target defines it. The properties are
// those that it sets.
void Test(const std::vector<std::string>& pieces);

// Ends the process, so that the fuzzer keeps the input, unless `holds`.
void Expect(bool holds, const char* what);

// A simple model of ExpandProps.
std::optional<std::string> ModelExpand(std::string src);

}  // namespace fuzz
