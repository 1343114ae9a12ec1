#include "VemraExtensionProperty/init_extension_property_impl.h"

#include <mutex>

namespace android {
namespace init {

InitExtensionPropertyImpl* InitExtensionPropertyImpl::getInstance() {
  static std::mutex creation_lock;
  std::lock_guard<std::mutex> guard(creation_lock);
  // Never freed: init and the bind thread use it until the process ends.
  static InitExtensionPropertyImpl* instance = new InitExtensionPropertyImpl();
  return instance;
}

void InitExtensionPropertyImpl::setLibName(const char* name) {
  libName = name == nullptr ? "" : name;
}

}  // namespace init
}  // namespace android

android::init::IInitExtensionProperty* KSSI_FETCH_IInitExtensionProperty(const char* libName) {
  android::init::IInitExtensionProperty* service =
      android::init::InitExtensionPropertyImpl::getInstance();
  service->setLibName(libName);
  return service;
}
