#pragma once

#include <functional>
#include <string>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/setting.h"

namespace extprop {

// Returns the settings of every property that anything sets, in the order in which they took
// effect; at most one of a property won. The record must come from a plan that asks for lines:
// others know no lines, only rules.
HistoryMap Histories(const BootRecord& record);

// The same for the names that `wanted` is true for, at a fraction of the cost; others may be there
// too.
using IsWanted = std::function<bool(const std::string& name)>;
HistoryMap Histories(const BootRecord& record, const IsWanted& wanted);

}  // namespace extprop
