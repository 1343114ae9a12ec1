#include "VemraExtensionProperty/cota/cota_bind_thread.h"

#include <cutils/properties.h>

#include <chrono>
#include <string>
#include <thread>

#include <android-base/logging.h>

#include "utils/system_property.h"

namespace android {
namespace init {

namespace {

constexpr char kRequestProperty[] = "sys.cota.bind.load.properties";
constexpr char kCompletionWord[] = "boot_mount_bind_complete";
constexpr char kServed[] = "null";
constexpr int kMaxEmptyPolls = 100;
constexpr std::chrono::milliseconds kPollInterval(200);

// Returns false for a word that is no request.
bool ServeRequest(const std::string& word, InitExtensionPropertyImpl* object,
                  PropertyApplyCallback cb) {
  if (word == "boot_mount") {
    object->bindAndLoadCotaOverrideProperties(cb);
  } else if (word == "module_bind_single_boot") {
    object->bindCotaModuleMountPoint(cb);
  } else if (word == "bind_basic_point_boot") {
    object->bindCotaBasicMountPoint(cb);
  } else {
    return false;
  }
  return true;
}

}  // namespace

void doBindCotaMountThread(InitExtensionPropertyImpl* object, PropertyApplyCallback cb) {
  LOG(INFO) << "check cota bind mount start";
  for (int empty_polls = 0; empty_polls < kMaxEmptyPolls;) {
    const std::string word = ReadSystemProperty(kRequestProperty);
    if (word.empty()) {
      std::this_thread::sleep_for(kPollInterval);
      ++empty_polls;
    } else if (word == kCompletionWord) {
      return;
    } else if (ServeRequest(word, object, cb)) {
      property_set(kRequestProperty, kServed);
    }
    // Any other word, kServed included, is polled again at once, neither counted nor waited for, by
    // intention.
  }
  LOG(INFO) << "not need do cota bind mount ";
}

}  // namespace init
}  // namespace android
