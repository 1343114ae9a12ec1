#include "tests/faults/sample_device.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "host/sandbox/private_root.h"

namespace fs = std::filesystem;

void EnterTestRoot() {
  umask(0);
  CHECK(geteuid() == 0) << "gives files to other users: run as root";
  const auto entered = sandbox::EnterPrivateRoot({});
  CHECK(entered.ok()) << "needs a private root: " << entered.error().message();
  // Where the private roots of the child processes are put together.
  Device::MakeDirectories("/tmp");
  android::base::SetLogger([](auto...) {});
}

long Entries(const char* directory) {
  return std::distance(fs::directory_iterator(directory), {});
}

void WriteFiles(const std::string& files) {
  for (std::vector<std::string> lines : Table(files)) {
    const std::string path = lines[0];
    const bool is_key = lines.size() == 2 && lines[1].find('=') == std::string::npos;
    const std::string name = "sys.at" + android::base::StringReplace(path, "/", ".", true);
    lines.erase(lines.begin());
    if (!is_key) lines.push_back(name + "=" + path + "\n");
    Device::Write(path, android::base::Join(lines, "\n"));
  }
}

void WritePartitions() {
  for (const std::string root : {"/odm", "/mnt/vendor/my_product", "/mnt/vendor/my_manifest",
                                 "/my_company", "/data/cota/image", "/data/cota/module"}) {
    WriteFiles(android::base::StringReplace(
        "@/build.prop @/etc/build.nvtarget.prop @/etc/build.ab-cd.prop "
        "@/properties/northcell/SimSwitchCurrentTime/a.prop "
        "@/properties/westtel/SimSwitchFirstTime/a.prop "
        "@/properties/westtel/SimSwitchFirstTime/b.prop "
        "@/properties/shop/switchCarrierChannel/a.prop",
        "@", root, true));
  }
  WriteFiles(
      "$nv_config,EUQ10007;rev2 /dev/block/platform/bootdevice/by-name/reserve_exp1,EUQ10007;rev2 "
      "/odm/etc/flags.prop,EUQ10007=nvtarget $vendor/manifest/etc/flags.prop,EUQ10007=nvtarget "
      "/odm/etc/nvmap.prop,EUQ10007=westtel $vendor/manifest/etc/nvmap.prop,EUQ10007=westtel "
      "/odm/etc/imported.prop");
  Device::Write("/mnt/vendor/my_product/build.prop", "import /odm/etc/imported.prop\n");
}

void SetBootProperties(const std::string& properties) {
  device::ClearProperties();
  Device::Set(
      "$shutdown=1 ro.build.display.id=AB_1 ro.none.clear.switch.first=true "
      "$image.company.date=D2 $image.region.version_name=R-7 $may_connect=1 "
      "ro.vendor.vemra.version_suffix=S " +
      properties);
}

std::map<std::string, std::string> StateFiles() {
  std::map<std::string, std::string> files;
  for (const std::string root : {"/mnt/vendor/vemrareserve", "/data/system", "/mnt/cota"}) {
    if (!fs::exists(root)) continue;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
      const std::string path = entry.path();
      files[path] = Device::Read(path);
      files[path + "'s owner"] = Device::ModeAndOwner(path);
    }
  }
  return files;
}
