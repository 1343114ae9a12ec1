#pragma once

#include <android-base/result.h>

#include "host/extprop/boot/boot.h"

namespace extprop {

// Returns those of a running phone's properties that it had when the first loader ran, as far as
// booting tells: what it has stored, what its boot loader passed on ("ro.boot."), and what nothing
// in the plan's boot sets or computes. `plan` is all else that is known of the device; its own
// properties are not among the result. Fails as RunBoot does.
android::base::Result<Properties> BootsWith(const Properties& phone, const BootPlan& plan);

}  // namespace extprop
