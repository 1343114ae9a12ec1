#pragma once

#include <set>
#include <string>
#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/property_search.h"
#include "host/extprop/explain/setting.h"

namespace extprop {

// Returns the paths of the files whose lines the histories of `record` have. Info files are none:
// much of what they hold is handed over by some steps only.
std::set<std::string> KnownFiles(const BootRecord& record);

// Returns what `lines` set, with the reason in `why` for which the boot of `record` did not read
// them, or handed nothing of them over. They are of other files than the known ones.
std::vector<Setting> UnreadSettings(const std::vector<FoundLine>& lines, const BootRecord& record);

}  // namespace extprop
