#include <cutils/properties.h>
#include <sys/mount.h>

#include <string>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "VemraExtensionProperty/cota/cota_image.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kMediaTarget[] = "persist.sys.customize.media";
constexpr char kMediaBindResult[] = "sys.mount.mediapath.success";
constexpr char kBindSucceeded[] = "0";
constexpr char kImagePartitionPrefix[] = "/my_";
constexpr unsigned long kMediaBindFlags = MS_BIND | MS_REC;

}  // namespace

void InitExtensionPropertyImpl::bindCustomizeMediaPath(const char* path) {
  const std::string source = ReadSystemProperty(kCustomMediaSource);
  if (source.empty()) return;
  if (path == nullptr || !android::base::StartsWith(path, kImagePartitionPrefix)) return;

  const int result = mount(source.c_str(), path, nullptr, kMediaBindFlags, nullptr);
  LOG(INFO) << "Mount ringtones result :" << result;
  property_set(kMediaBindResult, std::to_string(result).c_str());
}

void InitExtensionPropertyImpl::rebindCustomizeMediaPath() {
  const std::string target = ReadSystemProperty(kMediaTarget);
  const std::string last_result = ReadSystemProperty(kMediaBindResult);
  if (target.empty()) return;
  // A bind that failed before is deliberately not tried again.
  if (last_result.empty() || last_result == kBindSucceeded) bindCustomizeMediaPath(target.c_str());
}

}  // namespace init
}  // namespace android
