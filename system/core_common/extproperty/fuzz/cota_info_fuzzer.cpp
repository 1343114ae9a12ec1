#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <stdexcept>

#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "fuzz/fuzz_support.h"
#include "utils/cota_directory.h"

namespace {

namespace fs = std::filesystem;

constexpr char kMountInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kModuleInfo[] = "/data/cota/cota_module_info.prop";

using Command = std::pair<const char*, std::regex>;
// Each command and the beginnings of the names that it may hand over; the image has only "ro."
// names.
const Command kCommands[] = {{"update_cota_info", std::regex("")},
                             {"mount_and_check_load", std::regex("^(sys|ro|persisit)\\.")},
                             {"bind_basic_point", std::regex("^(sys|ro)\\.")},
                             {"module_bind_single", std::regex("^(sys|ro)\\.")}};
const Command* g_command;

void Host(int mode, android::init::PropertyMap map) {
  fuzz::Expect(mode == 0 && !map.empty(), "a hand-over has mode 0 and properties");
  for (const auto& [name, value] : map) {
    fuzz::Expect(std::regex_search(name, g_command->second), "it may be handed over");
    device::ApplyProperty(name, value);
  }
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

// Input: what to do (the index of a command, or else create a directory), the mount info file, the
// module info file, and the directory.
void fuzz::Test(const std::vector<std::string>& pieces) {
  PrepareDevice(pieces[1], pieces[2]);
  const int lowest_free = dup(0);
  close(lowest_free);

  const size_t index = static_cast<size_t>(pieces[0].c_str()[0] - '0');
  const bool is_command = index < std::size(kCommands);
  if (!is_command) {
    const bool created = android::init::createCotaDirectory(pieces[3]) == 0;
    Expect(!created || fs::is_directory(pieces[3].c_str()), "the directory is there");
  } else {
    g_command = &kCommands[index];
    const auto service = android::init::InitExtensionPropertyImpl::getInstance();
    try {
      service->loadCotaServiceOverrideProperties(g_command->first, Host);
    } catch (const std::out_of_range&) {  // a display name of one character
    }
  }

  Expect(dup(0) == lowest_free, "no descriptor is left open");
  close(lowest_free);
  ReturnToFirstMounts();
  Expect(!is_command || index == 3 || !fs::exists(kMountInfo), "the mount info is consumed");
  Expect(!is_command || index < 2 || !fs::exists(kModuleInfo), "the module info is consumed");
}
