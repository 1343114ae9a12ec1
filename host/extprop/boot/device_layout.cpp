#include "host/extprop/boot/device_layout.h"

#include <android-base/file.h>
#include <android-base/strings.h>

#include <algorithm>
#include <cwctype>
#include <iterator>

#include "host/extprop/vocabulary.h"

namespace extprop {

using android::base::EndsWith;
using android::base::StartsWith;

const KeyedDirectory* KeyedBy(const std::string& property) {
  for (const KeyedDirectory& keyed : kKeyedDirectories) {
    if (property == keyed.property) return &keyed;
  }
  return nullptr;
}

const char* PropertyOf(const std::string& kind) {
  for (const KeyedDirectory& keyed : kKeyedDirectories) {
    if (kind == keyed.kind) return keyed.property;
  }
  return "";
}

bool IsKeyProperty(const std::string& name) {
  return KeyedBy(name) != nullptr || name == kOperatorA || name == kOperatorB ||
         name == kBootCarrier;
}

const char* BareKeyProperty(const std::string& path) {
  if (path == kFirstFile) return kFirstKey;
  return path == kCurrentFile ? kCurrentKey : nullptr;
}

bool IsKeyedDirectory(const std::string& name) {
  return std::any_of(std::begin(kKeyedDirectories), std::end(kKeyedDirectories),
                     [&](const KeyedDirectory& keyed) { return name == keyed.directory; });
}

KeyedPath ParseKeyedPath(const std::string& path) {
  const std::string before = "/etc/build.", behind = ".prop", above = "/properties/";
  const size_t file = path.rfind(before);
  if (file != std::string::npos && EndsWith(path, behind)) {
    const size_t key = file + before.size();
    if (key + behind.size() >= path.size()) return {};
    const std::string found = path.substr(key, path.size() - behind.size() - key);
    return found.find('/') == std::string::npos ? KeyedPath{"file", found} : KeyedPath();
  }
  const std::string directory = android::base::Dirname(path);
  for (const KeyedDirectory& keyed : kKeyedDirectories) {
    if (!EndsWith(directory, std::string("/") + keyed.directory)) continue;
    const std::string parent = android::base::Dirname(directory);
    const size_t key = parent.rfind(above);
    if (key != std::string::npos) return {keyed.kind, parent.substr(key + above.size())};
  }
  return {};
}

FileContent ContentOf(const std::string& path) {
  if (Has(kInfoFiles, path)) return FileContent::kInfo;
  const bool mapping = EndsWith(path, std::string("/etc/") + kNvMapping) ||
                       EndsWith(path, std::string("/etc/") + kFirstMapping);
  return mapping ? FileContent::kMapping : FileContent::kProperties;
}

bool IsForwarded(const std::string& name) {
  return StartsWith(name, "sys.") || StartsWith(name, "ro.");
}

bool IsProperty(FileContent content, const std::string& name) {
  if (content != FileContent::kInfo) return content == FileContent::kProperties;
  // "persisit." is the contract's spelling.
  return IsForwarded(name) || StartsWith(name, "persist.") || StartsWith(name, "persisit.");
}

std::string LowerCased(std::string text) {
  for (char& c : text) {
    c = static_cast<char>(towlower(static_cast<wint_t>(static_cast<unsigned char>(c))));
  }
  return text;
}

std::size_t OperatorDash(const std::string& key) {
  const size_t dash = key.find('-', 1);
  return dash == key.size() - 1 ? std::string::npos : dash;
}

bool IsOperatorKey(const std::string& key) {
  return OperatorDash(key) != std::string::npos && LowerCased(key) == key;
}

}  // namespace extprop
