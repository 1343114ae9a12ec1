#pragma once

namespace android {
namespace init {

// State files that more than one step reads, writes or deletes, and the property that tells the
// channel.
constexpr char kDataCommonFile[] = "/data/system/customize/data_common_prop_file.prop";
constexpr char kEmptyAppChannelFile[] = "/data/system/customize/empty_appchannel_prop_file.prop";
constexpr char kSimSwitchCommonFile[] =
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_common_prop_file";
constexpr char kForceConnectFile[] =
    "/mnt/vendor/vemrareserve/system/ssv/force_connect_internet_prop_file";

constexpr char kChannelInfo[] = "persist.sys.channel.info";

}  // namespace init
}  // namespace android
