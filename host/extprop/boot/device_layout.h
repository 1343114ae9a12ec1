#pragma once

#include <cstddef>
#include <string>

// The files and properties of a device that mean something to the library. What they hold is told
// in docs/state_files.md and docs/cota_overlay.md.
namespace extprop {

// The properties that the library takes carrier keys from.
constexpr const char* kFirstKey = "sys.sim.switch.first";
constexpr const char* kCurrentKey = "sys.sim.switch.current";
constexpr const char* kChannelKey = "persist.sys.channel.info";
constexpr const char* kBootCarrier = "ro.boot.vmcarrier";
constexpr const char* kOperatorA = "persist.sys.vemra.operator.opta";
constexpr const char* kOperatorB = "persist.sys.vemra.operator.optb";
// Tells whether a legacy key has been converted to the first key.
constexpr const char* kConverted = "sys.sim.switch.convert";

// ROOT/properties/KEY/DIRECTORY/*.prop are read for a key, which is the value of the property.
struct KeyedDirectory {
  const char* kind;
  const char* directory;
  const char* property;
};
constexpr KeyedDirectory kKeyedDirectories[] = {{"first", "SimSwitchFirstTime", kFirstKey},
                                                {"current", "SimSwitchCurrentTime", kCurrentKey},
                                                {"channel", "switchCarrierChannel", kChannelKey}};

// The mapping files, ROOT/etc/NAME: what an NV key is to be in the names of files, and which first
// key a legacy key is converted to.
constexpr const char* kNvMapping = "flags.prop";
constexpr const char* kFirstMapping = "nvmap.prop";

// Where an NV key may be, and how many bytes of it count.
constexpr const char* kNvSources[] = {"/mnt/vendor/vemrareserve/radio/exp_operator_switch.config",
                                      "/dev/block/platform/bootdevice/by-name/reserve_exp1",
                                      "/dev/block/bootdevice/by-name/reserve_exp1"};
constexpr std::size_t kNvKeySize = 8;

// The state files. The whole text of the sim action file is the SSV key.
constexpr const char* kFirstFile = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_first_file";
constexpr const char* kCurrentFile = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file";
constexpr const char* kConvertFile = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_convert_file";
constexpr const char* kSimActionFile = "/mnt/vendor/vemrareserve/system/ssv/sim_action_file";
constexpr const char* kCommonFile =
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_common_prop_file";
constexpr const char* kForceConnectFile =
    "/mnt/vendor/vemrareserve/system/ssv/force_connect_internet_prop_file";
constexpr const char* kFlashbackFile = "/mnt/vendor/vemrareserve/system/flag/flashback.cfg";
constexpr const char* kDataFirstFile = "/data/system/customize/sim_switch/sim_switch_first_file";
constexpr const char* kDataCurrentFile =
    "/data/system/customize/sim_switch/sim_switch_current_file";
constexpr const char* kDataCommonFile = "/data/system/customize/data_common_prop_file.prop";
constexpr const char* kAppChannelFile = "/data/system/customize/empty_appchannel_prop_file.prop";

constexpr const char* kStateFiles[] = {kDataCommonFile,  kAppChannelFile,   kDataFirstFile,
                                       kDataCurrentFile, kForceConnectFile, kSimActionFile,
                                       kCommonFile,      kConvertFile,      kCurrentFile,
                                       kFirstFile,       kFlashbackFile};
// Those that the key pass loads after the first and the current file, in its order: each of them
// can replace what was loaded before.
constexpr const char* kLaterFiles[] = {kDataCurrentFile, kCommonFile,       kDataFirstFile,
                                       kDataCommonFile,  kForceConnectFile, kFlashbackFile};

// What the special edition's loader reads alone.
constexpr const char* kSpecialEditionFile = "/my_company/etc/build.prop";

// What tells of a COTA image or module: files that are read once, and the properties that they and
// a device may hold.
constexpr const char* kMountInfoFile = "/data/cota/cota_mount_info.prop";
constexpr const char* kModuleInfoFile = "/data/cota/cota_module_info.prop";
constexpr const char* kInfoFiles[] = {kMountInfoFile, kModuleInfoFile};
constexpr const char* kImageRoot = "sys.cota.load.properties";
constexpr const char* kImageVerified = "sys.cotaimg.verify";

// Returns the kind of directory whose keys a property of that name holds, null where none.
const KeyedDirectory* KeyedBy(const std::string& property);

// Returns the property that holds a key of the kind, "" where there is none.
const char* PropertyOf(const std::string& kind);

// Returns whether the library takes a carrier key, or a part of one, from a property of that name.
bool IsKeyProperty(const std::string& name);

// Returns the property that takes the whole text of the state file `path` as its value where the
// file is of the old format; null for a file that has no such format.
const char* BareKeyProperty(const std::string& path);

// Returns whether ROOT/properties/KEY/NAME is read for any key.
bool IsKeyedDirectory(const std::string& name);

// What a file's path says of the carrier key that it is read for.
struct KeyedPath {
  std::string kind;  // as of a KeyedDirectory, or "file" of ROOT/etc/build.KEY.prop; else empty
  std::string key;
};
KeyedPath ParseKeyedPath(const std::string& path);

// Returns whether an info file's line of that name is a property that every step forwards.
bool IsForwarded(const std::string& name);

// What the lines of a file are that the library reads by itself, not for an import: properties, of
// which an info file holds some among keys of its own, or mappings of keys.
enum class FileContent { kProperties, kInfo, kMapping };
FileContent ContentOf(const std::string& path);

// Returns whether a line of that name is a property in a file of that content, not a mapping nor an
// info file's own key.
bool IsProperty(FileContent content, const std::string& name);

// Returns `text` in lower case as the library makes the parts of an operator key.
std::string LowerCased(std::string text);
// Returns where the dash between the two parts of an operator key is, npos where a part is missing.
std::size_t OperatorDash(const std::string& key);
// Returns whether two operator properties can come to the key.
bool IsOperatorKey(const std::string& key);

}  // namespace extprop
