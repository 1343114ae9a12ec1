#pragma once

#include <string>

#include "host/extprop/boot/boot.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// Adds those of a running phone's properties, which ReadPhone reads from `file`, to the plan's that
// it had when the first loader ran, as far as booting tells: what it has stored, what its boot
// loader passed on ("ro.boot."), and what nothing in the plan's boot sets or computes. `*plan` is
// all else that is known of the device; its own properties stay. Fails as ReadPhone and RunBoot do.
Result<void> GiveFromPhone(const std::string& file, BootPlan* plan);

}  // namespace extprop
