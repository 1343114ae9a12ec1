#pragma once

#include <string>

#include <android-base/result.h>

namespace android {
namespace init {

// Returns `src` with each reference to a system property replaced by the property's current value:
// "${name}" by the value, "${name:-default}" by the value or, where that is empty, by the default,
// "$$" by one "$". A lone "$" at the end is dropped. References do not nest.
//
// Fails, returning nothing of the text, for "${" without "}", an empty name, "$" before any other
// byte, and a property that is empty and has no default.
android::base::Result<std::string> ExpandProps(const std::string& src);

}  // namespace init
}  // namespace android
