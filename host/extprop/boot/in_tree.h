#pragma once

#include <functional>
#include <string>

#include <android-base/result.h>

#include "host/extprop/trees/device_tree.h"

namespace extprop {

// Runs `work` in a child process whose "/" is a private view of `tree`, and returns what it
// returned. The tree itself is never changed. Fails where the kernel refuses the private root, the
// child is ended by a signal, or `work` fails or throws.
android::base::Result<std::string> RunInTree(
    const DeviceTree& tree, const std::function<android::base::Result<std::string>()>& work);

// For a thread of the child's own: makes RunInTree fail with `error` and ends the child.
[[noreturn]] void EndChild(const std::string& error);

}  // namespace extprop
