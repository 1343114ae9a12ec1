#pragma once

#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/history.h"
#include "host/extprop/explain/property_search.h"

namespace extprop {

// Returns those of `lines` that the boot of `record` did not read, or read and handed nothing of
// on, with the reason in `why`.
std::vector<Setting> UnreadSettings(const std::vector<FoundLine>& lines, const BootRecord& record);

}  // namespace extprop
