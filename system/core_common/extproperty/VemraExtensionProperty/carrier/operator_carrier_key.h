#pragma once

#include <string>

namespace android {
namespace init {

// Returns the carrier key that the two operator properties form, lower-cased and joined by "-"
// ("AB" and "Cd" give "ab-cd"); the empty string where either is empty.
std::string OperatorCarrierKey();

}  // namespace init
}  // namespace android
