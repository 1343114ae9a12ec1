#include "host/extprop/explain/unread_settings.h"

#include <android-base/strings.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "host/extprop/explain/carrier_key_origin.h"
#include "host/extprop/explain/read_maps.h"

namespace extprop {

namespace {

using android::base::StartsWith;

bool IsIn(const std::vector<std::string>& files, const std::string& file) {
  return std::find(files.begin(), files.end(), file) != files.end();
}

// Whether the file lies that many directories below `directory`.
bool IsBelow(const std::string& file, const std::string& directory, int depth) {
  std::string at = DirectoryOf(file);
  while (depth-- > 0) at = DirectoryOf(at);
  return at == directory;
}

// What a boot read, and by which keys.
class WhatWasRead {
 public:
  explicit WhatWasRead(const BootRecord& record) : record_(record) {
    for (const PropertyFile& file : record.property_files) files_.insert(file.device_path);
    for (const Step& step : record.steps) {
      for (const Event& event : step.events) {
        if (const auto* file = std::get_if<FileEvent>(&event.what)) TakeLookedFor(*file);
      }
    }
  }

  // Empty where the line was handed over.
  std::string WhyNot(const FoundLine& line) const {
    const auto& [path, source, root, image] = line.file;
    if (files_.count(path) != 0) {
      return IsHandedOver(line.name) ? "" : "read, but not among what is handed over of this file";
    }
    if (root.empty()) return "not read: no step of this boot reads it";
    if (image && !HasAnyBelow(root)) return WhyNotImage(root);
    const auto [kind, key] = ParseKeyedPath(path);
    const std::string keyed = kind == "file" ? "/etc" : "/properties/" + key;
    if (!kind.empty() && IsBelow(path, root + keyed, kind == "file" ? 0 : 1))
      return WhyNotKeyed(kind, key);
    if (path == root + "/build.prop") return "not read: no step of this boot loads it";
    if (StartsWith(path, root + "/properties/")) return "not read: no key reaches this directory";
    if (path == "/my_company/etc/build.prop" || path == "/mnt/vendor/my_company/etc/build.prop")
      return "not read: only the special edition's loader, quasar, loads it";
    return "not read: no file that was read imports it";
  }

 private:
  // The library looks for the files and directories of every key that it has.
  void TakeLookedFor(const FileEvent& file) {
    std::string path = file.path;
    if (file.op == FileOp::kList) path += "/.prop";
    if (file.op != FileOp::kAccess && file.op != FileOp::kList) return;
    const auto [kind, key] = ParseKeyedPath(path);
    if (!kind.empty()) keys_[kind].insert(key);
  }

  bool IsHandedOver(const std::string& name) const {
    for (const Step& step : record_.steps) {
      for (const Event& event : step.events) {
        const auto* map = std::get_if<HandOver>(&event.what);
        if (map != nullptr && FindEntry(*map, name) != nullptr) return true;
      }
    }
    return false;
  }

  bool HasAnyBelow(const std::string& root) const {
    const auto first = files_.lower_bound(root + "/");
    return first != files_.end() && StartsWith(*first, root + "/");
  }

  std::string WhyNotImage(const std::string& root) const {
    const auto verified = record_.properties.find("sys.cotaimg.verify");
    std::string why = "not read: no step of this boot loads the COTA image " + root;
    if (verified != record_.properties.end() && verified->second == "1") return why;
    return why + ", which is not verified";
  }

  std::string WhyNotKeyed(const std::string& kind, const std::string& key) const {
    const std::string what = kind == "file" ? "nv, ssv or operator" : kind;
    const auto tried = keys_.find(kind);
    if (tried != keys_.end() && tried->second.count(key) != 0)
      return "not read: no step of this boot loads it";
    const std::string why = "not read: for " + what + " key " + key + "; this boot has ";
    return why + (tried == keys_.end() ? "none" : android::base::Join(tried->second, ", "));
  }

  const BootRecord& record_;
  std::set<std::string> files_;
  std::map<std::string, std::set<std::string>> keys_;  // by kind of path
};

}  // namespace

std::set<std::string> KnownFiles(const BootRecord& record) {
  std::set<std::string> files;
  for (const PropertyFile& file : record.property_files) {
    if (!IsIn(kInfoFiles, file.path)) files.insert(file.device_path);
  }
  return files;
}

std::vector<Setting> UnreadSettings(const std::vector<FoundLine>& lines, const BootRecord& record) {
  const WhatWasRead read(record);
  std::vector<Setting> settings;
  for (const FoundLine& line : lines) {
    Setting setting;
    setting.why = read.WhyNot(line);
    if (setting.why.empty()) continue;
    setting.name = line.name;
    setting.value = line.value;
    setting.file = line.file.path;
    setting.line = line.line;
    setting.place = line.file.path + ":" + std::to_string(line.line);
    settings.push_back(std::move(setting));
  }
  return settings;
}

}  // namespace extprop
