#pragma once

#include <string>

#include "extproperty/init_extension_property.h"

namespace android {
namespace init {

constexpr char kCotaImageVerify[] = "sys.cotaimg.verify";
constexpr char kCotaLoadProperties[] = "sys.cota.load.properties";
constexpr char kCarrierMountPoint[] = "/my_carrier";

// Names the directory with the customised media; a COTA image that sets it brings new media.
constexpr char kCustomMediaSource[] = "ro.sys.custommedia.sourcepath";

// Returns the root of the COTA image that the system properties name and declare verified, or the
// empty string where there is none.
std::string VerifiedCotaImageRoot();

// Makes a COTA image's map speak of the carrier image instead of the big-ball image that it was
// built as: its date and version name become the carrier's, unless the map has those. The big-ball
// version name is removed, the big-ball date stays, by intention.
void CarryOverImageIdentity(PropertyMap* map);

// Bind-mounts `source` on `target` as a COTA image is mounted. Returns what mount(2) returned.
int BindCotaImage(const std::string& source, const std::string& target);

}  // namespace init
}  // namespace android
