#pragma once

#include <string>

namespace android {
namespace init {

// Returns the value of the system property `name`, or `default_value` where it is empty or unset:
// at most 91 bytes, which is what the platform's value buffer holds.
std::string ReadSystemProperty(const char* name, const char* default_value = "");

// Returns true where the whole value of the system property `name`, or `default_value` where it is
// empty or unset, is the one character "1".
bool IsSystemPropertyOne(const char* name, const char* default_value = "0");

}  // namespace init
}  // namespace android
