#include <dirent.h>
#include <unistd.h>

#include <string>

#include <android-base/logging.h>

#include "host/extprop/boot/loaders.h"
#include "host/platform/system_properties.h"
#include "host/sandbox/private_root.h"
#include "utils/property_file_parser.h"

// Calls loaders one after the other on a device, for count_system_calls.sh to trace: each call
// stands between two tests for the existence of a file named "/begin LOADER" or "/end LOADER".
namespace {

using android::init::PropertyMap;

void Host(int, PropertyMap map) {
  for (const auto& [name, value] : map) device::ApplyProperty(name, value);
}

void LoadBootProperties(const std::string& path) {
  PropertyMap map;
  CHECK(android::init::load_properties_from_file_without_se(path.c_str(), nullptr, &map)) << path;
  Host(0, map);
}

}  // namespace

// Usage: loader_calls DEVICE LOADER[=ARGUMENT]...
int main(int argc, char** argv) {
  const std::string device = argv[1];
  LoadBootProperties(device + "/device.prop");
  LoadBootProperties(device + "/cota.prop");
  const auto entered = sandbox::EnterPrivateRoot({device + "/root"});
  CHECK(entered.ok()) << entered.error();
  android::base::SetLogger([](auto...) {});

  android::init::IInitExtensionProperty* service =
      KSSI_FETCH_IInitExtensionProperty("libextproperty.so");
  for (int i = 2; i < argc; ++i) {
    const std::string call = argv[i];
    const size_t equals = call.find('=');
    const extprop::Loader* loader =
        extprop::FindLoader(call.substr(0, equals), equals != std::string::npos);
    CHECK(loader != nullptr) << call;
    const std::string argument = equals == std::string::npos ? "" : call.substr(equals + 1);
    access(("/begin " + call).c_str(), F_OK);
    loader->call(service, argument, Host);
    access(("/end " + call).c_str(), F_OK);
  }
}
