#pragma once

#include <functional>
#include <string>

#include <android-base/result.h>
#include <nlohmann/json_fwd.hpp>

namespace extprop {

// Runs `work` in a child process whose "/" is a private view of `tree`, and returns what it
// returned. The tree itself is never changed. Fails where the kernel refuses the private root, the
// child is ended by a signal, or `work` fails or throws.
android::base::Result<nlohmann::json> RunInTree(
    const std::string& tree, const std::function<android::base::Result<nlohmann::json>()>& work);

}  // namespace extprop
