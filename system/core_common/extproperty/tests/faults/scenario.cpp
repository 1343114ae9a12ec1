#include "tests/faults/scenario.h"

#include <unistd.h>

#include <system_error>

#include "tests/faults/sample_device.h"

namespace {

constexpr char kImageInfo[] = "$verify=1,$root=/data/cota/image";
constexpr char kModuleInfo[] =
    "mount_point=/data/cota/module,module_type=configure,bind_point=/my_module";

std::string g_step;
std::vector<std::string> g_notes;

// Notes in the end what is in the state files, and deletes them.
struct Boot {
  Service& Step(const std::string& name) {
    g_step = name;
    return service;
  }
  ~Boot() {
    for (const auto& [path, about] : StateFiles()) Note("file " + path + " " + about);
    Device::Remove("/mnt/vendor/vemrareserve/system /data/system/customize");
  }

  Service service;
};

void Apply(int mode, PropertyMap map) {
  Note("hand-over " + std::to_string(mode));
  for (const auto& [name, value] : map) {
    device::ApplyProperty(name, value);
    Note(std::to_string(mode) + " " + name + "=" + value);
  }
}

void ConvertLegacyKey(bool has_reserve) {
  SetBootProperties("ro.boot.vmcarrier=unmapped");
  WriteFiles("$common $channel");
  if (has_reserve) WriteFiles("$ssv/sim_action_file,ab-cd $ssv/sim_switch_common_prop_file");
  Boot boot;
  Service& service = boot.Step(has_reserve ? "convert" : "convert without reserve");
  service.loadPersistOverrideProperties(Apply);
  service.loadPersistOverrideProperties(Apply);
  if (Device::Exists("$ssv/sim_switch_convert_file") &&
      Device::Read("$ssv/sim_switch_first_file") != "sys.sim.switch.first=westtel\n") {
    Note("a key that was not kept counts as converted");
  }
}

void RunCommand(Boot* boot, const std::string& step, const std::string& command,
                const std::string& mount_info = kImageInfo) {
  WriteFiles("$mount_info," + mount_info + " $module_info," + kModuleInfo);
  boot->Step(step).loadCotaServiceOverrideProperties(command, Apply);
}

void RunBindThread(Boot* boot) {
  // Posted first: the thread then need not sleep.
  Device::Set("$request=boot_mount");
  try {
    RunCommand(boot, "image thread", "check_mount");
  } catch (const std::system_error&) {
    return;
  }
  while (device::PropertyValue(Long("$request")) != "null") usleep(100);
  const long threads = Entries("/proc/self/task");
  Device::Set("$request=boot_mount_bind_complete");
  while (Entries("/proc/self/task") == threads) usleep(100);
}

void RunCotaLoaders(Boot* boot) {
  Device::Set("$verify=1 $root=/data/cota/image");
  boot->Step("COTA").loadCotaOverrideProperties(Apply);
  boot->Step("media").bindCustomizeMediaPath("/my_carrier/media");
  RunCommand(boot, "image", "mount_and_check_load");
  RunCommand(boot, "module", "module_bind_single");
  RunCommand(boot, "basic", "bind_basic_point", "module=/mnt/cota/module/inner");
  RunCommand(boot, "image update", "update_cota_info");
  RunBindThread(boot);
}

void RunEveryLoader() {
  SetBootProperties(
      "$recopy=none $opta=AB $optb=CD persist.sys.channel.info=shop "
      "persist.sys.customize.media=/my_carrier/media "
      "ro.sys.custommedia.sourcepath=/data/cota/media");
  WriteFiles(
      "$ssv/sim_switch_first_file,westtel $ssv/sim_switch_current_file,northcell "
      "$ssv/sim_switch_convert_file,$switch.convert=true $ssv/sim_switch_common_prop_file "
      "$ssv/sim_action_file $ssv/force_connect_internet_prop_file,$connect=1 "
      "/mnt/vendor/vemrareserve/system/flag/flashback.cfg "
      "/data/system/customize/sim_switch/sim_switch_first_file,$switch.first=westtel "
      "/data/system/customize/sim_switch/sim_switch_current_file,$switch.current=northcell "
      "$common,persist.sys.channel.info=shop $channel");
  Boot boot;
  PropertyMap properties;
  boot.Step("partitions").loadExtensionPartitionProperties(&properties);
  Apply(0, properties);
  boot.Step("replay").loadPersistOverrideProperties(Apply);
  boot.Step("SIM switch").loadSimSwitchOverrideProperties(Apply);
  for (const std::string action : {"simSwitchCurrent", "simSwitchFirst", "updateDataCommonProp",
                                   "emptyAppchannelProp", "switchCarrierChannel"}) {
    boot.Step(action).loadSimSwitchOverrideProperties(action, Apply);
  }
  boot.Step("quasar").loadQuasarOverrideProperties(Apply);
  RunCotaLoaders(&boot);
}

}  // namespace

std::vector<std::string> RunScenario(watch::Observer* observer) {
  WritePartitions();
  WriteFiles(
      "/my_company/etc/build.prop "
      "/data/cota/image/build.prop,$image.bigball.date.utc=1,$image.bigball.version_name=V1-EU-B7,"
      "ro.sys.custommedia.sourcepath=/data/cota/media");
  Device::MakeDirectories(
      "/data/cota/media /data/cota/image/media /my_carrier/media /my_module /mnt/cota");
  g_notes.clear();
  watch::SetObserver(observer);
  ConvertLegacyKey(false);
  ConvertLegacyKey(true);
  RunEveryLoader();
  watch::SetObserver(nullptr);
  return g_notes;
}

void Note(const std::string& text) {
  g_notes.push_back("[" + g_step + "] " + text);
}

std::string CurrentStep() {
  return g_step;
}
