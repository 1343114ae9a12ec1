#pragma once

#ifndef __cpp_exceptions
#error \
    "Two standard errors pass through the loaders: without exceptions the service lock stays held."
#endif

#include <mutex>
#include <string>

#include "extproperty/init_extension_property.h"

namespace android {
namespace init {

// The service object behind IInitExtensionProperty. The host's one instance comes from
// getInstance(), lives until the process ends, and keeps the carrier keys that one loader finds for
// the loaders after it.
//
// Called from the host's thread alone, with two exceptions: the COTA service commands are
// serialised by the object's own lock, and the COTA bind thread runs the COTA bind operations
// without it.
//
// carrier/ has the operations on carrier keys and their properties, boot/ the steps of the persist
// loader and the loaders like it, cota/ those on the COTA overlay and the media path.
class InitExtensionPropertyImpl : public IInitExtensionProperty {
 public:
  InitExtensionPropertyImpl() = default;
  ~InitExtensionPropertyImpl() override = default;
  InitExtensionPropertyImpl(const InitExtensionPropertyImpl&) = delete;
  InitExtensionPropertyImpl& operator=(const InitExtensionPropertyImpl&) = delete;

  // Returns the singleton, creating it on the first call; never null, never freed. Thread-safe.
  static InitExtensionPropertyImpl* getInstance();

  void setLibName(const char* name) override;
  void bindCustomizeMediaPath(const char* path) override;
  void loadExtensionPartitionProperties(PropertyMap* out) override;
  void loadExtensionPartitionProperties(std::string partition, PropertyMap* out) override;
  int loadPersistOverrideProperties(PropertyApplyCallback cb) override;
  void loadCotaOverrideProperties(PropertyApplyCallback cb) override;
  void loadQuasarOverrideProperties(PropertyApplyCallback cb) override;
  void loadSimSwitchOverrideProperties(PropertyApplyCallback cb) override;
  void loadSimSwitchOverrideProperties(std::string action, PropertyApplyCallback cb) override;
  void loadCotaServiceOverrideProperties(std::string command, PropertyApplyCallback cb) override;

  // Adds the properties of every file of `dir` whose name ends in ".prop" to `properties`, in the
  // directory's own order. A directory that cannot be opened adds nothing.
  void loadPropertiesFromDir(const std::string& dir, PropertyMap* properties);

  // Adds a customisation version of "1" where the carrier partition declares a type and no
  // partition set the version.
  void modifyComponentPriorityIfNeed(PropertyMap* properties);

  // Adds the SIM-switch state files' properties to `map`, converting the legacy carrier key and
  // upgrading old-format files on the way, and fills the key fields.
  void loadExtensionSimswitchKeyInfo(PropertyMap* map);

  // Adds the files and directories below the partition root `root` that match the known carrier
  // keys to `map`.
  void loadExtensionPartitionSimswitchProperties(std::string root, PropertyMap* map);

  // The COTA operations behind the service commands and the bind thread's request words. Each
  // consumes its info file under /data/cota and hands properties to `cb` with mode 0.
  void bindCotaBasicMountPoint(PropertyApplyCallback cb);
  void bindCotaModuleMountPoint(PropertyApplyCallback cb);
  void bindAndLoadCotaOverrideProperties(PropertyApplyCallback cb);
  void updateCotaInfoProperties(PropertyApplyCallback cb);

  // Loads and hands over the property files of a COTA module bound at `path`.
  void loadCotaConfigureModuleProperties(std::string path, PropertyApplyCallback cb);

  // The state, in the order of the object's layout. Empty means unknown.
  std::string libName;
  std::string simSwitchFirstKey;
  std::string simSwitchCurrentKey;
  std::string channelInfo;
  std::string spareString;  // Part of the object's layout; nothing reads or writes it.
  std::string oldNvKey;     // As stored in NV, untranslated.
  std::string nvTargetKey;  // oldNvKey translated through the partitions' "flags.prop".
  std::string ssvKey;

 private:
  // Adds the property files of one partition for the carrier key `key`, if it is known.
  void loadCarrierDirectory(const std::string& root, const std::string& key, const char* kind,
                            PropertyMap* map);
  // Walks the partition roots with loadExtensionPartitionSimswitchProperties.
  void loadAllPartitionsSimswitchProperties(PropertyMap* map);
  // Adds both the build properties and the carrier-keyed properties below `root`.
  void loadRootProperties(const std::string& root, PropertyMap* map);
  // Hands over, and returns, what loadRootProperties finds in the COTA image at `root`; where it
  // stands in for the carrier image, under that image's identity.
  PropertyMap handOverImageProperties(const std::string& root, bool as_carrier,
                                      PropertyApplyCallback cb);
  // Binds the customised media on the target that is set, if one is, unless the last such bind
  // failed.
  void rebindCustomizeMediaPath();
  // Hands over the SIM-switch state: what is set already and what its files add.
  void runSimSwitchKeyPass(PropertyApplyCallback cb);
  // Hands over the company partition's writable properties and records its date, if that changed.
  void applyCompanyUpdate(PropertyApplyCallback cb);

  std::mutex mutex_;  // Held for the whole of one COTA service command.
};

}  // namespace init
}  // namespace android
