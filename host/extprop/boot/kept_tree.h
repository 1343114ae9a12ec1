#pragma once

#include <string>

#include <android-base/result.h>

#include "host/extprop/boot/boot_record.h"

// A tree that a boot left for the next one: the device's files as they then are and, at its top,
// the properties that the device has stored.
namespace extprop {

// Copies the root as it is under the mounts that the library and the sandbox made, without /proc
// unless `with_proc`, into the empty directory `to`, together with what `record` leaves stored.
// Until the tree is whole a file in it says that it is not.
android::base::Result<void> KeepTree(int to, bool with_proc, const BootRecord& record);

// Adds what was stored by the boot that left `tree`, nothing where none did. Fails where that boot
// was interrupted before the tree was whole.
android::base::Result<void> ReadStored(const std::string& tree, Properties* properties);

}  // namespace extprop
