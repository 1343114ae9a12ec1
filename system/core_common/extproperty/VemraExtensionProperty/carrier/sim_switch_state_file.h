#pragma once

#include <string>

#include "extproperty/init_extension_property.h"

// The state files in the reserve partition. docs/state_files.md describes them.
namespace android {
namespace init {

constexpr char kSsvDirectory[] = "/mnt/vendor/vemrareserve/system/ssv/";

constexpr char kSimSwitchFirst[] = "sys.sim.switch.first";
constexpr char kSimSwitchCurrent[] = "sys.sim.switch.current";
constexpr char kSimSwitchConvert[] = "sys.sim.switch.convert";
constexpr char kNoneClearSwitchFirst[] = "ro.none.clear.switch.first";

// A state file that holds one carrier key, and the texts that are logged about it.
struct SimSwitchStateFile {
  const char* path;
  const char* property;
  const char* exists_text;
  const char* read_failure_text;
  const char* upgrade_text;
  const char* write_failure_text;
};

extern const SimSwitchStateFile kSimSwitchFirstFile;
extern const SimSwitchStateFile kSimSwitchCurrentFile;

// Returns what a state file holds for `key`: the property, "=", the key and a line feed.
std::string StateFileContent(const char* property, const std::string& key);

// Where the state file exists, adds its property to `map` and puts its key into `*key`. A file in
// the old format, the bare key, is rewritten as a property file, unless `map` holds the property
// already; its text, untrimmed, is the key.
// What fails is logged and leaves `*key` as it was, except that a key whose file could not be
// rewritten still counts.
void LoadOrUpgradeStateFile(const SimSwitchStateFile& file, PropertyMap* map, std::string* key);

// Writes `content` to the state file at `path`. Returns false, with `failure_text` and the error
// logged, where it could not be written whole.
bool WriteStateFile(const char* path, const std::string& content, const char* failure_text);

// Gives the file at `path`, if it exists, to user and group system; a link is changed itself, not
// its target. Failure is logged.
void GiveToSystem(const char* path);

}  // namespace init
}  // namespace android
