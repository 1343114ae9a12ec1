#pragma once

#include <string>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// Each adds the properties of a file to `properties`, a later one replacing an earlier one. "-" is
// the standard input, which is read once and then remembered. Where the file begins with a
// "[NAME]: [VALUE]", it is what getprop printed: a value may go on over further lines, and blank
// lines and lines that begin with "#" are passed over. The error names the file, and the line where
// one is at fault.

// Anything else is a build.prop, which the parser of the library reads that LoadLibrary finds by
// `library`; it fails where that cannot be loaded. The parser follows no imports here, as they name
// files of a device; a warning on the standard error stream tells of each, and of each line that is
// no property.
Result<void> ReadProperties(const std::string& path, const std::string& library,
                            Properties* properties);

// Anything else is an error.
Result<void> ReadPrinted(const std::string& path, Properties* properties);

// Anything else is a text in which getprop's output stands somewhere, such as a bugreport: the
// longest run of its lines is taken.
Result<void> ReadPhone(const std::string& path, Properties* properties);

// Adds one NAME=VALUE. An empty value stays in the map.
Result<void> ParseAssignment(const std::string& text, Properties* properties);

// Returns what a device has stored after the boot, its "persist." properties, in the form that
// getprop prints. Those that the boot cleared have no value, so that they replace what the
// partitions set.
std::string StoredText(const BootRecord& record);

}  // namespace extprop
