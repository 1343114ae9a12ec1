#include "tests/faults/scenario.h"

#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <system_error>

#include <android-base/stringprintf.h>

#include "tests/faults/sample_device.h"

namespace fs = std::filesystem;

namespace {

constexpr char kRequest[] = "sys.cota.bind.load.properties";
constexpr char kImageInfo[] = "sys.cotaimg.verify=1\nsys.cota.load.properties=/data/cota/image\n";

std::mutex g_lock;
std::string g_step;
std::vector<std::string> g_notes;

void BeginStep(const std::string& step) {
  std::lock_guard<std::mutex> guard(g_lock);
  g_step = step;
}

void Apply(int mode, PropertyMap map) {
  Note("hand-over " + std::to_string(mode));
  for (const auto& [name, value] : map) {
    device::ApplyProperty(name, value);
    Note(android::base::StringPrintf("%d %s=%s", mode, name.c_str(), value.c_str()));
  }
}

void EndBoot() {
  for (const auto& [path, about] : StateFiles()) {
    Note(android::base::StringPrintf("file %s %s", path.c_str(), about.c_str()));
  }
  fs::remove_all(kReserve);
  fs::remove_all(kCustomize);
}

void ConvertLegacyKey(bool has_reserve) {
  Service service;
  SetBootProperties({{"ro.boot.vmcarrier", "unmapped"}});
  WriteFiles({{kCustomize + "data_common_prop_file.prop", ""},
              {kCustomize + "empty_appchannel_prop_file.prop", ""}});
  if (has_reserve) {
    WriteFiles({{kSsv + "sim_action_file", "ab-cd"}, {kSsv + "sim_switch_common_prop_file", ""}});
  }
  BeginStep(has_reserve ? "convert" : "convert without reserve");
  service.loadPersistOverrideProperties(Apply);
  service.loadPersistOverrideProperties(Apply);
  EndBoot();
}

void RunCommand(Service* service, const std::string& step, const std::string& command,
                const std::string& mount_info) {
  WriteFiles({{"/data/cota/cota_mount_info.prop", mount_info},
              {"/data/cota/cota_module_info.prop",
               "mount_point=/data/cota/module\nmodule_type=configure\nbind_point=/my_module\n"}});
  BeginStep(step);
  service->loadCotaServiceOverrideProperties(command, Apply);
}

long Threads() {
  return std::distance(fs::directory_iterator("/proc/self/task"), {});
}

void RunBindThread(Service* service) {
  // Posted first: the thread then need not sleep.
  device::ApplyProperty(kRequest, "boot_mount");
  try {
    RunCommand(service, "thread", "check_mount", kImageInfo);
  } catch (const std::system_error&) {
    return;
  }
  while (device::PropertyValue(kRequest) != "null") usleep(100);
  const long threads = Threads();
  device::ApplyProperty(kRequest, "boot_mount_bind_complete");
  while (Threads() == threads) usleep(100);
}

void RunCotaLoaders(Service* service) {
  device::ApplyProperty("sys.cotaimg.verify", "1");
  device::ApplyProperty("sys.cota.load.properties", "/data/cota/image");
  BeginStep("COTA");
  service->loadCotaOverrideProperties(Apply);
  BeginStep("media");
  service->bindCustomizeMediaPath("/my_carrier/media");
  RunCommand(service, "image", "mount_and_check_load", kImageInfo);
  RunCommand(service, "module", "module_bind_single", kImageInfo);
  RunCommand(service, "basic", "bind_basic_point", "module=/mnt/cota/module/inner\n");
  RunCommand(service, "update", "update_cota_info", kImageInfo);
  RunBindThread(service);
}

void RunEveryLoader() {
  Service service;
  SetBootProperties({{"persist.sys.recopy.preload.vminstalled", "none"},
                     {"persist.sys.vemra.operator.opta", "AB"},
                     {"persist.sys.vemra.operator.optb", "CD"},
                     {"persist.sys.channel.info", "shop"},
                     {"persist.sys.customize.media", "/my_carrier/media"},
                     {"ro.sys.custommedia.sourcepath", "/data/cota/media"}});
  const std::string copies = kCustomize + "sim_switch/sim_switch_";
  WriteFiles({{kSsv + "sim_switch_first_file", "westtel"},
              {kSsv + "sim_switch_current_file", "northcell"},
              {kSsv + "sim_switch_convert_file", "sys.sim.switch.convert= true\n"},
              {kSsv + "sim_switch_common_prop_file", ""},
              {kSsv + "sim_action_file", ""},
              {kSsv + "force_connect_internet_prop_file", "ro.vemra.internet.force.connect=1"},
              {kReserve + "flag/flashback.cfg", ""},
              {copies + "first_file", "sys.sim.switch.first=westtel\n"},
              {copies + "current_file", "sys.sim.switch.current=northcell\n"},
              {kCustomize + "data_common_prop_file.prop", "persist.sys.channel.info=shop\n"},
              {kCustomize + "empty_appchannel_prop_file.prop", ""}});
  BeginStep("partitions");
  PropertyMap properties;
  service.loadExtensionPartitionProperties(&properties);
  Apply(0, properties);
  BeginStep("replay");
  service.loadPersistOverrideProperties(Apply);
  BeginStep("SIM switch");
  service.loadSimSwitchOverrideProperties(Apply);
  for (const std::string action : {"simSwitchCurrent", "simSwitchFirst", "updateDataCommonProp",
                                   "emptyAppchannelProp", "switchCarrierChannel"}) {
    BeginStep(action);
    service.loadSimSwitchOverrideProperties(action, Apply);
  }
  BeginStep("quasar");
  service.loadQuasarOverrideProperties(Apply);
  RunCotaLoaders(&service);
  EndBoot();
}

}  // namespace

std::vector<std::string> RunScenario() {
  WritePartitions();
  WriteFiles({{"/my_company/etc/build.prop", ""},
              {"/data/cota/image/build.prop",
               "ro.vemra.image.my_bigball.date.utc=1\n"
               "ro.vemra.image.my_bigball.version_name=V1-EU-B7\n"
               "ro.sys.custommedia.sourcepath=/data/cota/media\n"}});
  for (const char* path : {"/data/cota/media", "/data/cota/image/media", "/my_carrier/media",
                           "/my_module", "/mnt/cota"}) {
    Device::MakeDirectories(path);
  }
  g_notes.clear();
  ConvertLegacyKey(false);
  ConvertLegacyKey(true);
  RunEveryLoader();
  return g_notes;
}

void Note(const std::string& text) {
  std::lock_guard<std::mutex> guard(g_lock);
  g_notes.push_back("[" + g_step + "] " + text);
}

std::string CurrentStep() {
  std::lock_guard<std::mutex> guard(g_lock);
  return g_step;
}
