#include "host/extprop/boot/loaders.h"

#include <utility>

#include "host/extprop/boot/boot_record.h"

namespace extprop {

namespace {

using android::init::PropertyMap;
using Callback = android::init::PropertyApplyCallback;
using Service = android::init::IInitExtensionProperty;

void Partitions(Service* service, const std::string&, Callback callback) {
  PropertyMap map;
  service->loadExtensionPartitionProperties(&map);
  callback(kFilledMap, std::move(map));
}

void Partition(Service* service, const std::string& root, Callback callback) {
  PropertyMap map;
  service->loadExtensionPartitionProperties(root, &map);
  callback(kFilledMap, std::move(map));
}

void Persist(Service* service, const std::string&, Callback callback) {
  service->loadPersistOverrideProperties(callback);
}

void Cota(Service* service, const std::string&, Callback callback) {
  service->loadCotaOverrideProperties(callback);
}

void Quasar(Service* service, const std::string&, Callback callback) {
  service->loadQuasarOverrideProperties(callback);
}

void SimSwitch(Service* service, const std::string&, Callback callback) {
  service->loadSimSwitchOverrideProperties(callback);
}

void SimSwitchAction(Service* service, const std::string& action, Callback callback) {
  service->loadSimSwitchOverrideProperties(action, callback);
}

void CotaService(Service* service, const std::string& command, Callback callback) {
  service->loadCotaServiceOverrideProperties(command, callback);
}

void Media(Service* service, const std::string& path, Callback) {
  service->bindCustomizeMediaPath(path.c_str());
}

}  // namespace

const std::vector<Loader>& Loaders() {
  static const std::vector<std::string> actions = {"simSwitchFirst", "simSwitchCurrent",
                                                   "updateDataCommonProp", "emptyAppchannelProp",
                                                   "switchCarrierChannel"};
  static const std::vector<std::string> commands = {"check_mount",      "mount_and_check_load",
                                                    "mount_must_load",  "bind_basic_point",
                                                    "update_cota_info", "module_bind_single"};
  static const std::vector<Loader> loaders = {
      {"partitions", nullptr, "build properties of all partitions", Partitions, true, true},
      {"partition", "ROOT", "those of one partition", Partition, true, true},
      {"persist", nullptr, "the boot loader: carrier state, company update, specials", Persist},
      {"cota", nullptr, "properties of a verified COTA image", Cota},
      {"quasar", nullptr, "the special edition's properties", Quasar},
      {"simswitch", nullptr, "all carrier-dependent properties anew", SimSwitch},
      {"simswitch", "ACTION", "one kind of carrier change", SimSwitchAction, true, false, actions},
      {"service", "COMMAND", "a COTA service command; check_mount starts the bind thread",
       CotaService, false, false, commands},
      {"media", "PATH", "bind the customised media directory onto PATH", Media, false},
  };
  return loaders;
}

const std::vector<std::string>& RequestWords() {
  static const std::vector<std::string> words = {"boot_mount", "module_bind_single_boot",
                                                 "bind_basic_point_boot", kLastWord};
  return words;
}

const Loader* FindLoader(const std::string& name, bool with_argument) {
  for (const Loader& loader : Loaders()) {
    if (name == loader.name && with_argument == (loader.argument != nullptr)) return &loader;
  }
  return nullptr;
}

}  // namespace extprop
