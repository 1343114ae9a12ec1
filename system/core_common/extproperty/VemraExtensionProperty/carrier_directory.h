#pragma once

#include <string>

namespace android {
namespace init {

// What a carrier-keyed directory of a partition applies to; the last component of its path.
extern const char kSimSwitchCurrentTime[];
extern const char kSimSwitchFirstTime[];
extern const char kSwitchCarrierChannel[];

// Returns the path of the directory that holds the property files of `kind` for the carrier key
// `key` below the partition root `root`. The key is taken as it is.
std::string CarrierDirectory(const std::string& root, const std::string& key, const char* kind);

}  // namespace init
}  // namespace android
