#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/check/findings.h"

namespace extprop {

// A line that was read, and what the library logged about it where it refused an import.
struct ReadingLine {
  const PropertyLine* line;
  std::string said;
};

// One reading of a property file.
struct Reading {
  std::string path;  // of the file in the device's files
  std::string filter;
  std::string error;          // why it could not be read; empty where it could
  std::size_t outermost = 0;  // the reading that no import led to, in the same list
  Place import;               // the line that led to it; no path in the outermost
  const Step* step = nullptr;
  std::vector<ReadingLine> lines;
};

// Returns what a record says of each of its property files, in the same order. Lines of files that
// the boot itself had written are left out.
std::vector<Reading> ReadingsOf(const BootRecord& record);

}  // namespace extprop
