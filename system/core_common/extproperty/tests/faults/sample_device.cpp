#include "tests/faults/sample_device.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include <android-base/logging.h>

#include "host/sandbox/private_root.h"

namespace fs = std::filesystem;

void EnterTestRoot() {
  umask(0);
  if (geteuid() != 0) {
    fputs("gives files to other users: run as root\n", stderr);
    exit(EXIT_FAILURE);
  }
  const auto entered = sandbox::EnterPrivateRoot({});
  if (!entered.ok()) {
    fprintf(stderr, "needs a private root: %s\n", entered.error().message().c_str());
    exit(EXIT_FAILURE);
  }
  // Where the private roots of the child processes are put together.
  Device::MakeDirectories("/tmp");
  android::base::SetLogger([](auto...) {});
}

void WriteFiles(const std::map<std::string, std::string>& files) {
  for (const auto& [path, content] : files) {
    Device::Write(path, content);
    if (!content.empty() && content.back() != '\n') continue;
    std::string name = "sys.at" + path;
    std::replace(name.begin(), name.end(), '/', '.');
    std::ofstream(path, std::ios::app) << name << "=" << path << "\n";
  }
}

void WritePartitions() {
  for (const std::string root : {"/odm", "/mnt/vendor/my_product", "/mnt/vendor/my_manifest",
                                 "/my_company", "/data/cota/image", "/data/cota/module"}) {
    WriteFiles({{root + "/build.prop", ""},
                {root + "/etc/build.nvtarget.prop", ""},
                {root + "/etc/build.ab-cd.prop", ""},
                {root + "/properties/northcell/SimSwitchCurrentTime/a.prop", ""},
                {root + "/properties/westtel/SimSwitchFirstTime/a.prop", ""},
                {root + "/properties/westtel/SimSwitchFirstTime/b.prop", ""},
                {root + "/properties/shop/switchCarrierChannel/a.prop", ""}});
  }
  for (const std::string root : {"/odm", "/mnt/vendor/my_manifest"}) {
    WriteFiles({{root + "/etc/flags.prop", "EUQ10007=nvtarget"},
                {root + "/etc/nvmap.prop", "EUQ10007=westtel"}});
  }
  WriteFiles({{"/odm/etc/imported.prop", ""},
              {"/mnt/vendor/my_product/build.prop", "import /odm/etc/imported.prop\n"},
              {"/mnt/vendor/vemrareserve/radio/exp_operator_switch.config", "EUQ10007;rev=2"},
              {"/dev/block/platform/bootdevice/by-name/reserve_exp1", "EUQ10007;rev=2"}});
}

void SetBootProperties(PropertyMap properties) {
  properties.insert({{"persist.sys.911.shutdown", "1"},
                     {"ro.build.display.id", "AB_1"},
                     {"ro.none.clear.switch.first", "true"},
                     {"ro.vemra.image.my_company.date", "D2"},
                     {"ro.vemra.image.my_region.version_name", "R-7"},
                     {"ro.vemra.internet.whether.force.connect", "1"},
                     {"ro.vendor.vemra.version_suffix", "S"}});
  device::ClearProperties();
  for (const auto& [name, value] : properties) device::ApplyProperty(name, value);
}

std::map<std::string, std::string> StateFiles() {
  std::map<std::string, std::string> files;
  for (const std::string root : {"/mnt/vendor/vemrareserve", "/data/system", "/mnt/cota"}) {
    if (!fs::exists(root)) continue;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
      const std::string content = entry.is_regular_file() ? " " + Device::Read(entry.path()) : "";
      files[entry.path()] = Device::ModeAndOwner(entry.path()) + content;
    }
  }
  return files;
}
