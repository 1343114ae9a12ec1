#pragma once

#include <string>

#include <android-base/result.h>

#include "host/extprop/boot/boot_record.h"

namespace extprop {

// Adds the properties of a file to `properties`, a later one replacing an earlier one. Each line is
// NAME=VALUE, as in a build.prop, or [NAME]: [VALUE], as getprop prints it, where the value may go
// on over further lines. Blank lines and lines that begin with "#" are passed over; imports are not
// followed. The error names the file, and the line where one is at fault.
android::base::Result<void> ReadProperties(const std::string& path, Properties* properties);

// Adds one NAME=VALUE. An empty value stays in the map.
android::base::Result<void> ParseAssignment(const std::string& text, Properties* properties);

// Writes the properties whose names begin with "persist.", which a device keeps over a boot, in the
// form that ReadProperties reads; those that the boot cleared are written without a value, so that
// they replace what the first boot began with. Returns how many could not be written because their
// value has more than one line.
android::base::Result<int> WritePersistent(const BootRecord& record, const std::string& path);

}  // namespace extprop
