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

}  // namespace

const std::vector<Loader>& Loaders() {
  static const std::vector<Loader> loaders = {
      {"partitions", nullptr, {}, true, true, "build properties of all partitions", Partitions},
      {"partition", "ROOT", {}, true, true, "those of one partition", Partition},
      {"persist",
       nullptr,
       {},
       true,
       false,
       "the boot loader: carrier state, company update, specials",
       [](Service* service, const std::string&, Callback callback) {
         service->loadPersistOverrideProperties(callback);
       }},
      {"cota",
       nullptr,
       {},
       true,
       false,
       "properties of a verified COTA image",
       [](Service* service, const std::string&, Callback callback) {
         service->loadCotaOverrideProperties(callback);
       }},
      {"quasar",
       nullptr,
       {},
       true,
       false,
       "the special edition's properties",
       [](Service* service, const std::string&, Callback callback) {
         service->loadQuasarOverrideProperties(callback);
       }},
      {"simswitch",
       nullptr,
       {},
       true,
       false,
       "all carrier-dependent properties anew",
       [](Service* service, const std::string&, Callback callback) {
         service->loadSimSwitchOverrideProperties(callback);
       }},
      {"simswitch",
       "ACTION",
       {"simSwitchFirst", "simSwitchCurrent", "updateDataCommonProp", "emptyAppchannelProp",
        "switchCarrierChannel"},
       true,
       false,
       "one kind of carrier change",
       [](Service* service, const std::string& action, Callback callback) {
         service->loadSimSwitchOverrideProperties(action, callback);
       }},
      {"service",
       "COMMAND",
       {"check_mount", "mount_and_check_load", "mount_must_load", "bind_basic_point",
        "update_cota_info", "module_bind_single"},
       false,
       false,
       "a COTA service command; check_mount starts the bind thread",
       [](Service* service, const std::string& command, Callback callback) {
         service->loadCotaServiceOverrideProperties(command, callback);
       }},
      {"media",
       "PATH",
       {},
       false,
       false,
       "bind the customised media directory onto PATH",
       [](Service* service, const std::string& path, Callback /*callback*/) {
         service->bindCustomizeMediaPath(path.c_str());
       }},
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
