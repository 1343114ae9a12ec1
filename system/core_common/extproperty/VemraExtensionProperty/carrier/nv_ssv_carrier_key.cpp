#include "VemraExtensionProperty/carrier/nv_ssv_carrier_key.h"

#include <unistd.h>

#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/extension_partition_roots.h"
#include "VemraExtensionProperty/property_loading.h"
#include "utils/file_io.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kMappingDirectory[] = "/etc/";
constexpr char kNvToTargetMapping[] = "flags.prop";
constexpr char kFirstKeyMapping[] = "nvmap.prop";
constexpr char kBootCarrier[] = "ro.boot.vmcarrier";
constexpr size_t kNvKeySize = 8;

constexpr const char* kNvSources[] = {
    "/mnt/vendor/vemrareserve/radio/exp_operator_switch.config",
    "/dev/block/platform/bootdevice/by-name/reserve_exp1",
    "/dev/block/bootdevice/by-name/reserve_exp1",
};

// Returns the first bytes of the first source that has any. No more than the key is read: two of
// the sources are whole partitions.
std::string ReadNvKey() {
  for (const char* source : kNvSources) {
    android::base::Result<std::string> key = ReadFirstBytes(source, kNvKeySize);
    if (!key.ok()) {
      LOG(ERROR) << "read nv_flag failed :" << source;
    } else if (key->empty()) {
      LOG(WARNING) << "Couldn't file" << source;
    } else {
      return *key;
    }
  }
  return std::string();
}

}  // namespace

void find_nv_ssv_target_key(std::string key, std::string mapping_file_name, std::string* result) {
  result->clear();
  if (key.empty()) return;
  for (size_t i = kExtensionPartitionCount; i-- > 0;) {
    const std::string path = ExtensionPartitionRoots[i] + kMappingDirectory + mapping_file_name;
    PropertyMap mapping;
    if (LoadPropertyFileIfPresent(path, "map file load failed:", &mapping) != FileLoad::kLoaded) {
      continue;
    }
    // Up to its first NUL byte: a mapping file's names hold none.
    if (const std::string* target = FindProperty(mapping, key.c_str())) {
      result->append(*target);
      return;
    }
  }
}

void load_old_nv_key(std::string* nv_key, std::string* nv_target_key) {
  const std::string key = ReadNvKey();
  if (key.empty()) return;
  std::string target;
  find_nv_ssv_target_key(key, kNvToTargetMapping, &target);
  // Both at last: a key without its translation would be taken for one that has none.
  nv_key->append(key);
  *nv_target_key = target;
}

void read_old_ssv_key(std::string* ssv_key) {
  if (access(kSimActionFile, F_OK) != 0) return;
  android::base::Result<std::string> content = ReadFile(kSimActionFile);
  if (!content.ok()) {
    LOG(ERROR) << "read old ssv failed :" << kSimActionFile;
    return;
  }
  *ssv_key = *content;
}

void load_convert_first_key(std::string* convert_key, std::string nv_key, std::string ssv_key) {
  const std::string boot_carrier = ReadSystemProperty(kBootCarrier);
  for (const std::string& candidate : {boot_carrier, nv_key, ssv_key}) {
    if (!convert_key->empty()) return;
    if (!candidate.empty()) find_nv_ssv_target_key(candidate, kFirstKeyMapping, convert_key);
  }
}

}  // namespace init
}  // namespace android
