#pragma once

#include <cstddef>
#include <string>

namespace android {
namespace init {

constexpr size_t kExtensionPartitionCount = 11;

// The roots of the extension partitions, in the order of precedence: where properties are loaded
// from index 0 upward, a later partition's value replaces an earlier one's.
extern const std::string ExtensionPartitionRoots[kExtensionPartitionCount];

}  // namespace init
}  // namespace android
