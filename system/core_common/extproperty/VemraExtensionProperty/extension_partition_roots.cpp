#include "VemraExtensionProperty/extension_partition_roots.h"

#include <string>

namespace android {
namespace init {

const std::string ExtensionPartitionRoots[kExtensionPartitionCount] = {
    "/odm",
    "/mnt/vendor/my_preload",
    "/mnt/vendor/my_tavlen",
    "/mnt/vendor/my_stock",
    "/mnt/vendor/my_product",
    "/mnt/vendor/my_region",
    "/mnt/vendor/my_carrier",
    "/mnt/vendor/my_bigball",
    "/mnt/vendor/my_company",
    "/mnt/vendor/my_engineering",
    "/mnt/vendor/my_manifest",
};

}  // namespace init
}  // namespace android
