#pragma once

#include <map>
#include <ostream>
#include <string>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/render/terminal.h"

namespace extprop {

// What may be the lowest severity that is shown, by name.
inline const std::map<std::string, Severity> kLogLevels = {{"verbose", Severity::kVerbose},
                                                           {"info", Severity::kInfo},
                                                           {"warning", Severity::kWarning},
                                                           {"error", Severity::kError}};

struct TextOptions {
  bool all = false;                 // every property, not only what changed
  Severity log = Severity::kError;  // the lowest that is shown; kVerbose shows reads as well
  bool colour = false;
};

// Warns on the standard error stream of what the boot could not read or reach, though it is there,
// and of `others`, by path with the reason.
void WarnOfUnreadable(const BootRecord& record, std::map<std::string, std::string> others = {});

// Prints the steps with what each did, in order, and what changed in files and mounts. Without
// `all` a count of everything comes first, and of a hand-over only what it changes is shown; with
// it the resulting properties are printed as getprop does.
void RenderText(const BootRecord& record, const TextOptions& options, std::ostream& out);

}  // namespace extprop
