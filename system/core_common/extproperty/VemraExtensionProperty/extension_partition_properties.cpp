#include <dirent.h>

#include <memory>
#include <string>

#include <android-base/strings.h>

#include "VemraExtensionProperty/extension_partition_roots.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"

namespace android {
namespace init {

namespace {

constexpr char kBuildPropertyFile[] = "/build.prop";
constexpr char kPropertyFileSuffix[] = ".prop";
constexpr char kCarrierImageType[] = "ro.vemra.image.my_carrier.type";
constexpr char kNoCarrierImageType[] = "empty";
constexpr char kCustomisationVersion[] = "ro.vemra.cust.ver";

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

void InitExtensionPropertyImpl::loadExtensionPartitionProperties(PropertyMap* out) {
  for (const std::string& root : ExtensionPartitionRoots) {
    loadExtensionPartitionProperties(root, out);
  }
  modifyComponentPriorityIfNeed(out);
}

void InitExtensionPropertyImpl::loadExtensionPartitionProperties(std::string partition,
                                                                 PropertyMap* out) {
  LoadPropertyFile(partition + kBuildPropertyFile, "partition property load failed:", out);
}

void InitExtensionPropertyImpl::loadPropertiesFromDir(const std::string& dir,
                                                      PropertyMap* properties) {
  std::unique_ptr<DIR, DirectoryCloser> stream(opendir(dir.c_str()));
  if (stream == nullptr) return;
  while (const dirent* entry = readdir(stream.get())) {
    if (entry->d_type == DT_DIR) continue;
    const std::string path = dir + "/" + entry->d_name;
    if (!android::base::EndsWith(path, kPropertyFileSuffix)) continue;
    LoadPropertyFile(path, "property load failed:", properties);
  }
}

void InitExtensionPropertyImpl::modifyComponentPriorityIfNeed(PropertyMap* properties) {
  const std::string* type = FindProperty(*properties, kCarrierImageType);
  if (type == nullptr || *type == kNoCarrierImageType) return;
  properties->emplace(kCustomisationVersion, "1");
}

}  // namespace init
}  // namespace android
