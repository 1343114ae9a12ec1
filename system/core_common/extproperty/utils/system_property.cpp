#include "utils/system_property.h"

#include <cutils/properties.h>

#include <string>

namespace android {
namespace init {

std::string ReadSystemProperty(const char* name, const char* default_value) {
  char value[PROPERTY_VALUE_MAX] = {};
  property_get(name, value, default_value);
  return value;
}

bool IsSystemPropertyOne(const char* name, const char* default_value) {
  return ReadSystemProperty(name, default_value) == "1";
}

}  // namespace init
}  // namespace android
