#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "fuzz/fuzz_support.h"

namespace {

namespace fs = std::filesystem;

constexpr char kMountInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kModuleInfo[] = "/data/cota/cota_module_info.prop";
constexpr const char* kCommands[] = {"update_cota_info", "mount_and_check_load", "bind_basic_point",
                                     "module_bind_single"};

void Host(int mode, android::init::PropertyMap map) {
  fuzz::Expect(mode == 0 && !map.empty(), "a hand-over has mode 0 and properties");
  for (const auto& [name, value] : map) device::ApplyProperty(name, value);
}

// Takes back all mounts that were made since the first call.
void ReturnToFirstMounts() {
  // A thread can change its mounts only where no other thread shares its root.
  static const bool alone = unshare(CLONE_FS) == 0;
  static const int first = open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC);
  fuzz::Expect(alone && setns(first, CLONE_NEWNS) == 0, "the first mounts can be returned to");
}

void PrepareDevice(const std::string& mount_info, const std::string& module_info) {
  ReturnToFirstMounts();
  for (const fs::directory_entry& entry : fs::directory_iterator("/")) {
    if (entry.path() != "/proc") fs::remove_all(entry.path());
  }
  for (const char* path : {"/data/cota/image", "/mnt/cota", "/my_carrier/media", "/my_company"}) {
    fs::create_directories(path);
  }
  std::ofstream(kMountInfo) << mount_info;
  std::ofstream(kModuleInfo) << module_info;
  std::ofstream("/data/cota/image/build.prop")
      << "ro.vemra.image.my_bigball.version_name=A-B2CT\nro.sys.custommedia.sourcepath=/data\n";
  device::ApplyProperty("persist.sys.customize.media", "/my_carrier/media");
  fuzz::Expect(unshare(CLONE_NEWNS) == 0, "mounts can be made");
}

}  // namespace

// Input: the index of a command, the mount info file and the module info file.
void fuzz::Test(const std::vector<std::string>& pieces) {
  PrepareDevice(pieces[1], pieces[2]);
  const int lowest_free = dup(0);
  close(lowest_free);

  const size_t index = static_cast<unsigned char>(pieces[0].c_str()[0]) % std::size(kCommands);
  android::init::InitExtensionPropertyImpl service;
  try {
    service.loadCotaServiceOverrideProperties(kCommands[index], Host);
  } catch (const std::out_of_range&) {  // a display name of one character
  }

  Expect(dup(0) == lowest_free, "no descriptor is left open");
  close(lowest_free);
  ReturnToFirstMounts();
  Expect(index == 3 || !fs::exists(kMountInfo), "the mount info is consumed");
  Expect(index < 2 || !fs::exists(kModuleInfo), "the module info is consumed");
}
