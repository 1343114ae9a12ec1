#pragma once

#include <ostream>
#include <string>

#include "host/extprop/boot/boot_record.h"

namespace extprop {

struct TextOptions {
  Severity log = Severity::kInfo;  // the lowest that is shown; kVerbose shows reads as well
  bool colour = false;
};

// Prints the steps with what each did, in order, then the resulting properties as getprop does, and
// what changed in files and mounts.
void RenderText(const BootRecord& record, const TextOptions& options, std::ostream& out);

// Returns true where the standard output is a terminal and NO_COLOR is not set.
bool ColourWanted();

// Returns `text` on one line: control bytes are written as in C.
std::string Visible(const std::string& text);

// Returns the names of mount flags, such as "MS_RDONLY|MS_BIND".
std::string MountFlagNames(unsigned long flags);

}  // namespace extprop
