#include "VemraExtensionProperty/carrier/sim_switch_state_file.h"

#include <sys/types.h>
#include <unistd.h>

#include <string>

#include <android-base/logging.h>

#include "VemraExtensionProperty/property_loading.h"
#include "utils/file_io.h"

namespace android {
namespace init {

namespace {

constexpr uid_t kSystemUser = 1000;
constexpr gid_t kSystemGroup = 1000;

}  // namespace

const SimSwitchStateFile kSimSwitchFirstFile = {
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_first_file",
    kSimSwitchFirst,
    "sim_switch_first_file is exist!!!",
    "read sim switch first file failed :",
    "Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY",
    "Unable to write sim_switch_first_file",
};

const SimSwitchStateFile kSimSwitchCurrentFile = {
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file",
    kSimSwitchCurrent,
    "sim_switch_current_file is exist!!!",
    "read sim switch current file failed :",
    "Convert tmp_current_key to SIM_SWITCH_CURRENT_PROPERTY",
    "Unable to write sim_switch_current_file",
};

std::string StateFileContent(const char* property, const std::string& key) {
  return std::string(property) + "=" + key + "\n";
}

void LoadOrUpgradeStateFile(const SimSwitchStateFile& file, PropertyMap* map, std::string* key) {
  if (access(file.path, F_OK) != 0) return;
  LOG(INFO) << file.exists_text;
  if (!LoadPropertyFile(file.path, "sim switch key property failed:", map)) return;
  if (const std::string* value = FindProperty(*map, file.property)) {
    *key = *value;
    return;
  }

  const android::base::Result<std::string> old_format_key = ReadFile(file.path);
  if (!old_format_key.ok()) {
    LOG(ERROR) << file.read_failure_text << file.path;
    return;
  }
  if (old_format_key->empty()) return;
  // At ERROR by intention, although nothing failed.
  LOG(ERROR) << file.upgrade_text;
  map->emplace(file.property, *old_format_key);
  WriteStateFile(file.path, StateFileContent(file.property, *old_format_key),
                 file.write_failure_text);
  *key = *old_format_key;
  GiveToSystem(file.path);
}

bool WriteStateFile(const char* path, const std::string& content, const char* failure_text) {
  const auto written = WriteFile(path, content);
  if (!written.ok()) LOG(ERROR) << failure_text << written.error();
  return written.ok();
}

void GiveToSystem(const char* path) {
  if (access(path, F_OK) != 0) return;
  if (lchown(path, kSystemUser, kSystemGroup) != 0) {
    LOG(ERROR) << "Unable to chown file " << path;
  }
}

}  // namespace init
}  // namespace android
