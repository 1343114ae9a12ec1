#include "host/platform/system_properties.h"

#include <android-base/properties.h>
#include <cutils/properties.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <string>

namespace {

struct Store {
  std::mutex lock;
  device::Properties values;
};

// Never destroyed: a detached thread of the library may still read while the process exits.
Store& TheStore() {
  static Store* store = new Store;
  return *store;
}

bool IsReadOnly(const std::string& name) {
  return name.compare(0, 3, "ro.") == 0;
}

// The checks of the device's property service: only a read-only value may be long, and a read-only
// property that has a value keeps it.
bool SetAsClient(const std::string& name, const std::string& value) {
  if (name.empty()) return false;
  if (value.size() >= PROP_VALUE_MAX && !IsReadOnly(name)) return false;
  Store& store = TheStore();
  std::lock_guard<std::mutex> guard(store.lock);
  std::string& stored = store.values[name];
  if (IsReadOnly(name) && !stored.empty()) return false;
  stored = value;
  return true;
}

}  // namespace

namespace device {

void ApplyProperty(const std::string& name, const std::string& value) {
  Store& store = TheStore();
  std::lock_guard<std::mutex> guard(store.lock);
  store.values[name] = value;
}

std::string PropertyValue(const std::string& name) {
  Store& store = TheStore();
  std::lock_guard<std::mutex> guard(store.lock);
  auto found = store.values.find(name);
  return found == store.values.end() ? std::string() : found->second;
}

Properties AllProperties() {
  Store& store = TheStore();
  std::lock_guard<std::mutex> guard(store.lock);
  return store.values;
}

void ClearProperties() {
  Store& store = TheStore();
  std::lock_guard<std::mutex> guard(store.lock);
  store.values.clear();
}

}  // namespace device

extern "C" int property_get(const char* key, char* value, const char* default_value) {
  std::string stored = device::PropertyValue(key);
  if (stored.empty() && default_value != nullptr) stored = default_value;
  size_t length = std::min(stored.size(), static_cast<size_t>(PROP_VALUE_MAX - 1));
  memcpy(value, stored.data(), length);
  value[length] = '\0';
  return static_cast<int>(length);
}

extern "C" int property_set(const char* key, const char* value) {
  return SetAsClient(key, value == nullptr ? "" : value) ? 0 : -1;
}

namespace android {
namespace base {

std::string GetProperty(const std::string& key, const std::string& default_value) {
  std::string stored = device::PropertyValue(key);
  return stored.empty() ? default_value : stored;
}

bool SetProperty(const std::string& key, const std::string& value) {
  return SetAsClient(key, value);
}

}  // namespace base
}  // namespace android
