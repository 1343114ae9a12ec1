#include "VemraExtensionProperty/carrier/legacy_key_conversion.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/carrier/create_directory.h"
#include "VemraExtensionProperty/carrier/nv_ssv_carrier_key.h"
#include "VemraExtensionProperty/carrier/sim_switch_state_file.h"
#include "VemraExtensionProperty/property_loading.h"

namespace android {
namespace init {

namespace {

constexpr char kNoneClearMarker[] = "/mnt/vendor/vemrareserve/system/ssv/first_switch_none_clear";
constexpr char kTrue[] = "true";

bool IsTrue(const PropertyMap& map, const char* property) {
  const std::string* value = FindProperty(map, property);
  return value != nullptr && *value == kTrue;
}

void EnsureSsvDirectory() {
  if (access(kSsvDirectory, F_OK) == 0) return;
  LOG(INFO) << "there is no ssv dir";
  // A failure shows in the log of the write that follows.
  if (createDirectory(kSsvDirectory) == 0) LOG(INFO) << "create ssv dir: " << kSsvDirectory;
}

// A part of the first file would keep later boots from converting. A regular file there is the
// conversion's own, as there was none before; a link that could not be opened is not.
void RemoveIncompleteFirstFile() {
  struct stat about;
  if (lstat(kSimSwitchFirstFile.path, &about) == 0 && S_ISREG(about.st_mode)) {
    unlink(kSimSwitchFirstFile.path);
  }
}

}  // namespace

bool IsLegacyKeyConverted(const PropertyMap& map) {
  return IsTrue(map, kSimSwitchConvert);
}

void ConvertLegacyKey(const std::string& nv_key, const std::string& ssv_key,
                      const PropertyMap& map) {
  std::string convert_key;
  load_convert_first_key(&convert_key, nv_key, ssv_key);
  if (convert_key.empty()) return;

  EnsureSsvDirectory();
  // The text names the sim action file, but it is the first file that could not be written.
  if (WriteStateFile(kSimSwitchFirstFile.path, StateFileContent(kSimSwitchFirst, convert_key),
                     "Unable to write sim_action_first_file ")) {
    // The blank after "=" is part of the file's format.
    WriteStateFile(kSimSwitchConvertFile, std::string(kSimSwitchConvert) + "= true\n",
                   "Unable to write sim_switch_convert_file ");
  } else {
    RemoveIncompleteFirstFile();
  }
  if (access(kNoneClearMarker, F_OK) != 0 && IsTrue(map, kNoneClearSwitchFirst)) {
    WriteStateFile(kNoneClearMarker, "1", "Unable to write first_switch_none_clear ");
  }
  for (const char* path : {kSimSwitchFirstFile.path, kNoneClearMarker, kSimSwitchConvertFile}) {
    GiveToSystem(path);
  }
}

}  // namespace init
}  // namespace android
