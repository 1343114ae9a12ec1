#pragma once

#include <string>

namespace android {
namespace init {

// Returns the value of the system property `name`, or `default_value` where it is empty or unset. A
// value is cut to what the platform's value buffer holds, 91 bytes.
std::string ReadSystemProperty(const char* name, const char* default_value = "");

// Returns true where the whole value of the system property `name` is the one character "1".
bool IsSystemPropertyOne(const char* name);

}  // namespace init
}  // namespace android
