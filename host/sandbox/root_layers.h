#pragma once

#include <string>

#include <android-base/result.h>

#include "host/sandbox/private_root.h"

namespace sandbox {

// The error for a step of making a private root that the kernel refused with errno, with advice
// where there is any.
android::base::ResultError Refused(const std::string& step);

// Puts the root that `options` describe together and returns the mount point that is to become "/".
// To be called in a private mount namespace.
android::base::Result<std::string> BuildRoot(const PrivateRootOptions& options,
                                             bool user_namespace);

}  // namespace sandbox
