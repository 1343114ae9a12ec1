#pragma once

namespace android {
namespace init {

// Names the directory with the customised media; a COTA image that sets it brings new media.
constexpr char kCustomMediaSource[] = "ro.sys.custommedia.sourcepath";

}  // namespace init
}  // namespace android
