#pragma once

#include <functional>
#include <string>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/setting.h"

namespace extprop {

using IsWanted = std::function<bool(const std::string& name)>;

// Returns the settings of every property that anything sets, in the order in which they took
// effect; at most one of a property won. The record must come from a plan that asks for lines:
// others know no lines, only rules. Where only the names are needed that `wanted` is true for, it
// takes a fraction of the time; others may be there too.
HistoryMap Histories(const BootRecord& record, const IsWanted& wanted = nullptr);

}  // namespace extprop
