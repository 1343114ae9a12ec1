#include <string>

#include "VemraExtensionProperty/carrier/partition_sim_switch_properties.h"
#include "VemraExtensionProperty/extension_partition_roots.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "VemraExtensionProperty/property_loading.h"

namespace android {
namespace init {

namespace {

void LoadLegacyKeyFile(const std::string& root, const std::string& key, const char* failure_text,
                       PropertyMap* map) {
  if (key.empty()) return;
  LoadPropertyFileIfPresent(root + "/etc/build." + key + ".prop", failure_text, map);
}

}  // namespace

// Each source overrides the ones before it.
void InitExtensionPropertyImpl::loadExtensionPartitionSimswitchProperties(std::string root,
                                                                          PropertyMap* map) {
  LoadLegacyKeyFile(root, nvTargetKey, "nv old property load failed:", map);
  LoadLegacyKeyFile(root, ssvKey, "ssv old property load failed:", map);
  loadCarrierDirectory(root, simSwitchCurrentKey, kSimSwitchCurrentTime, map);
  loadCarrierDirectory(root, simSwitchFirstKey, kSimSwitchFirstTime, map);
  loadCarrierDirectory(root, channelInfo, kSwitchCarrierChannel, map);
}

void InitExtensionPropertyImpl::loadCarrierDirectory(const std::string& root,
                                                     const std::string& key, const char* kind,
                                                     PropertyMap* map) {
  if (!key.empty()) loadPropertiesFromDir(root + "/properties/" + key + "/" + kind, map);
}

void InitExtensionPropertyImpl::loadAllPartitionsSimswitchProperties(PropertyMap* map) {
  for (const std::string& root : ExtensionPartitionRoots) {
    loadExtensionPartitionSimswitchProperties(root, map);
  }
}

void InitExtensionPropertyImpl::loadRootProperties(const std::string& root, PropertyMap* map) {
  loadExtensionPartitionProperties(root, map);
  loadExtensionPartitionSimswitchProperties(root, map);
}

}  // namespace init
}  // namespace android
