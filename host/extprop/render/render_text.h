#pragma once

#include <ostream>
#include <string>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/render/terminal.h"

namespace extprop {

struct TextOptions {
  bool all = false;                 // every property, not only what changed
  Severity log = Severity::kError;  // the lowest that is shown; kVerbose shows reads as well
  bool colour = false;
  std::size_t width = 0;  // in columns; 0 for no limit
};

// Prints the steps with what each did, in order, and what changed in files and mounts. Without
// `all` a count of everything comes first, and of a hand-over only what it changes is shown; with
// it the resulting properties are printed as getprop does.
void RenderText(const BootRecord& record, const TextOptions& options, std::ostream& out);

// Returns the names of mount flags, such as "MS_RDONLY|MS_BIND".
std::string MountFlagNames(unsigned long flags);

}  // namespace extprop
