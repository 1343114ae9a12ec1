#pragma once

// The limits that <cutils/properties.h> takes from the device's C library, terminators included.
#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
