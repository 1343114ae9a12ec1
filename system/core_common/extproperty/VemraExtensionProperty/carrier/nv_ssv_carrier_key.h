#pragma once

#include <string>

// The legacy carrier keys, kept in NV storage and in the reserve partition, and the partitions'
// mapping files that translate them. An empty key is an unknown one. The outputs belong to the
// caller; failures are logged.
namespace android {
namespace init {

// The legacy SSV key's file; the SIM-switch state reads the same file as a property file.
constexpr char kSimActionFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_action_file";

// Replaces `*result` with the value that the mapping file `mapping_file_name`, below "/etc/" of the
// partitions, gives for `key` (up to the key's first NUL byte). The partition with the highest
// index that maps the key decides. `*result` is empty where `key` is empty or no partition maps it.
void find_nv_ssv_target_key(std::string key, std::string mapping_file_name, std::string* result);

// Appends the legacy NV key, the first eight bytes of the first NV source that is readable and not
// empty, to `*nv_key` and puts its translation through "flags.prop" into `*nv_target_key`.
void load_old_nv_key(std::string* nv_key, std::string* nv_target_key);

// Puts the legacy SSV key, the whole untrimmed sim action file, into `*ssv_key`, if there is one.
void read_old_ssv_key(std::string* ssv_key);

// Puts the first SIM-switch key into `*convert_key`, unless that holds one already: what
// "nvmap.prop" gives for the boot carrier, else for `nv_key`, else for `ssv_key`.
void load_convert_first_key(std::string* convert_key, std::string nv_key, std::string ssv_key);

}  // namespace init
}  // namespace android
