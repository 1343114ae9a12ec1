#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "fuzz/fuzz_support.h"
#include "utils/cota_directory.h"
#include "utils/file_io.h"

namespace {

namespace fs = std::filesystem;
using android::init::WriteFile;

constexpr char kMountInfo[] = "/data/cota/cota_mount_info.prop";
constexpr char kModuleInfo[] = "/data/cota/cota_module_info.prop";

// Each command and the names that it may hand over; the image has only "ro." names.
using Command = std::vector<std::string>;
const std::vector<Command> kCommands = {{"update_cota_info", ""},
                                        {"mount_and_check_load", "sys.", "ro.", "persisit."},
                                        {"bind_basic_point", "sys.", "ro."},
                                        {"module_bind_single", "sys.", "ro."}};
const Command* g_command;

void Host(int mode, android::init::PropertyMap map) {
  fuzz::Expect(mode == 0 && !map.empty(), "a hand-over has mode 0 and properties");
  for (const auto& entry : map) {
    const auto begins = [&](const auto& prefix) { return entry.first.rfind(prefix, 0) == 0; };
    fuzz::Expect(std::any_of(g_command->begin() + 1, g_command->end(), begins), "it may be handed");
    device::ApplyProperty(entry.first, entry.second);
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
  const std::string image =
      "ro.vemra.image.my_bigball.version_name=A-B2CT\nro.sys.custommedia.sourcepath=/data\n";
  fuzz::Expect(WriteFile(kMountInfo, mount_info).ok() && WriteFile(kModuleInfo, module_info).ok() &&
                   WriteFile("/data/cota/image/build.prop", image).ok() &&
                   unshare(CLONE_NEWNS) == 0,
               "the device can be prepared");
  device::ClearProperties();
  device::ApplyProperty("persist.sys.customize.media", "/my_carrier/media");
}

}  // namespace

// Input: what to do (the index of a command, or else create a directory), the mount info file, the
// module info file, and the directory.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::vector<std::string> pieces = fuzz::Cut(data, size, 4);
  // The machine's files are no files of the device.
  if (std::string(data, data + size).find("proc") != std::string::npos) return -1;
  PrepareDevice(pieces[1], pieces[2]);
  const int lowest_free = dup(0);
  close(lowest_free);

  const size_t index = static_cast<size_t>(pieces[0].c_str()[0] - '0');
  const bool is_command = index < kCommands.size();
  if (!is_command) {
    const bool created = android::init::createCotaDirectory(pieces[3]) == 0;
    fuzz::Expect(!created || fs::is_directory(pieces[3].c_str()), "the directory is there");
  } else {
    g_command = &kCommands[index];
    const auto service = android::init::InitExtensionPropertyImpl::getInstance();
    try {
      service->loadCotaServiceOverrideProperties(g_command->front(), Host);
    } catch (const std::out_of_range&) {  // a display name of one character
    }
  }

  fuzz::Expect(dup(0) == lowest_free, "no descriptor is left open");
  close(lowest_free);
  ReturnToFirstMounts();
  fuzz::Expect(!is_command || index == 3 || !fs::exists(kMountInfo), "the mount info is consumed");
  fuzz::Expect(!is_command || index < 2 || !fs::exists(kModuleInfo), "the module info is consumed");
  return 0;
}
