#pragma once

#include <string>

#include "host/extprop/vocabulary.h"
#include "host/sandbox/private_root.h"

namespace extprop {

// Makes `root` show `directory` at `place` with all that is mounted below it. What is mounted at or
// below /proc, /sys and /dev of it is the workstation's own and left out.
//
// An ordinary user cannot lay an overlay over a directory that has mounts of root's below it: then
// the directories on the way to the mounts are left to be made, and what else they hold are layers.
Result<void> ShowWithMounts(const std::string& place, const std::string& directory,
                            sandbox::PrivateRootOptions* root);

}  // namespace extprop
