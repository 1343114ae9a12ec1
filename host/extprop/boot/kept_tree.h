#pragma once

#include <string>

#include <android-base/unique_fd.h>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/vocabulary.h"

// A tree that a boot left for the next one: the device's files as they then are and, at its top,
// the properties that the device has stored.
namespace extprop {

// Takes hold of the root with what is mounted in it, before a boot: the files that the boot changes
// are changed in it too, but the mounts that the library makes are not in it.
Result<android::base::unique_fd> HoldTree();

// Copies the `root` that is held, with its /proc only if `with_proc` and then without what the
// sandbox has mounted there, into the empty directory `to`, together with what `record` leaves
// stored. Until the tree is whole a file in it says that it is not.
Result<void> KeepTree(const android::base::unique_fd& root, int to, bool with_proc,
                      const BootRecord& record);

// Adds what was stored by the boot that left `tree`, nothing where none did. Fails where that boot
// was interrupted before the tree was whole.
Result<void> ReadStored(const std::string& tree, Properties* properties);

}  // namespace extprop
