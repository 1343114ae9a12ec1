#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "extproperty/init_extension_property.h"
#include "host/platform/system_properties.h"

// What the fuzz targets share. Each runs in an empty private root, with its log lines dropped after
// they were composed.
namespace fuzz {

// Returns the input cut at each "|" into `count` pieces.
std::vector<std::string> Cut(const uint8_t* data, size_t size, size_t count);

// Ends the process, so that the fuzzer keeps the input, unless `holds`.
void Expect(bool holds, const char* what);

// A simple model of ExpandProps.
std::optional<std::string> ModelExpand(const std::string& src);

}  // namespace fuzz
