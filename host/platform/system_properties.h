#pragma once

#include <map>
#include <string>

// One process-wide, thread-safe store of system properties, behind the platform's own entry points
// (property_get, property_set, android::base::GetProperty and SetProperty). The functions below are
// what the device's init can do besides: it applies a property whatever its length and whether or
// not it is read-only, because it owns the store.
namespace device {

using Properties = std::map<std::string, std::string>;

// Sets `name` to `value`, replacing any earlier value. An empty value makes the property absent for
// every reader, as on the device.
void ApplyProperty(const std::string& name, const std::string& value);

// Returns the value of `name`, or the empty string where it is absent.
std::string PropertyValue(const std::string& name);

// Returns a copy of every property that was ever set and not cleared, empty ones included.
Properties AllProperties();

// Forgets every property.
void ClearProperties();

}  // namespace device
