#include <algorithm>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/check/checks.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::StartsWith;

// The state files that are upgraded from the old format, and their copies, which are not.
constexpr const char* kUpgradedFiles[] = {kFirstFile, kCurrentFile};
constexpr const char* kCopies[] = {kDataFirstFile, kDataCurrentFile};

bool IsStateFile(const std::string& path) {
  return StartsWith(path, "/mnt/vendor/vemrareserve/system/") ||
         StartsWith(path, "/data/system/customize/");
}

// What the boot read of the file as a text, before it wrote it.
std::string TextOf(const BootRecord& boot, const std::string& path) {
  for (const FileEvent* file : Only<FileEvent>(boot)) {
    if (file->op == FileOp::kRead && file->path == path && !file->content.empty()) {
      return file->content;
    }
  }
  return "";
}

// Reports white space at the end of a bare key, which no name of a file or mapping has. Returns
// whether there is none.
bool CheckBareKey(const std::string& path, const std::string& key, Findings* findings) {
  if (android::base::Trim("x" + key) == "x" + key) return true;
  const bool line_end = EndsWith(key, "\n") || EndsWith(key, "\r");
  findings->Add(line_end ? "line-end-in-key" : "trailing-space", {path, 1},
                std::string(line_end ? "the line end" : "the blank at the end") +
                    " is part of the key " + Quoted(key) + ", so nothing matches it");
  return false;
}

void CheckCarrier(const Place& at, const std::string& key, const CarrierFiles& carriers,
                  Findings* findings) {
  if (key.empty() || carriers.keyed_directories.count(key) != 0) return;
  findings->Add("unknown-carrier", at, "no partition has a directory properties/" + key);
}

}  // namespace

bool IsBareKey(const Reading& reading) {
  const std::string& path = reading.Path();
  if (!Has(kUpgradedFiles, path) && !Has(kCopies, path) && path != kSimActionFile) return false;
  bool bare = false;
  for (const PropertyLine* line : reading.lines) {
    if (Sets(*line)) return false;
    bare = bare || line->outcome == LineOutcome::kNoProperty;
  }
  return bare;
}

void CheckStateFiles(const BootRecord& boot, const std::vector<Reading>& readings,
                     const CarrierFiles& carriers, Findings* findings) {
  for (const Reading& reading : readings) {
    if (!IsStateFile(reading.Path())) continue;
    if (IsBareKey(reading) && Has(kCopies, reading.Path())) {
      findings->Add("old-state-file", {reading.Path(), 1},
                    "a bare key, which is ignored in this file");
    }
    if (IsBareKey(reading) && Has(kUpgradedFiles, reading.Path())) {
      std::string key = TextOf(boot, reading.Path());
      findings->Add("old-state-file", {reading.Path(), 1},
                    key.empty()
                        ? "a bare key, the old format; a boot without its property rewrites it"
                        : "a bare key, the old format; the next boot rewrites it");
      if (key.empty()) android::base::ReadFileToString(reading.Path(), &key);
      if (CheckBareKey(reading.Path(), key, findings)) {
        CheckCarrier({reading.Path(), 1}, key, carriers, findings);
      }
    }
    for (const PropertyLine* line : reading.lines) {
      if (!Sets(*line) || KeyedBy(line->name) == nullptr) continue;
      CheckCarrier({reading.Path(), line->line}, line->value, carriers, findings);
    }
  }
}

void CheckMappings(const CarrierFiles& carriers, Findings* findings) {
  for (const auto& [file, at, key, target] : carriers.mappings) {
    const bool nv = file == kNvMapping;
    if (nv && key.size() > kNvKeySize) {
      findings->Add("long-nv-key", at,
                    Quoted(key) + " never matches: an NV key has eight bytes at most");
    }
    const bool known = nv ? carriers.keyed_files.count(target) != 0
                          : carriers.keyed_directories.count(target) != 0;
    if (target.empty() || known) continue;
    const std::string missing =
        nv ? "etc/build." + target + ".prop" : "a directory properties/" + target;
    findings->Add("missing-target", at, "no partition has " + missing);
  }
}

void CheckLegacyKeys(const BootRecord& boot, const CarrierFiles& carriers, Findings* findings) {
  const auto report = [&](const LegacyKey& key, const char* mapping) {
    if (key.key.empty()) return;
    const Place at = {key.source, key.source == kPropertiesPath ? size_t{0} : size_t{1}};
    findings->Add("unmapped-key", at,
                  "no etc/" + std::string(mapping) + " knows the key " + Quoted(key.key));
  };
  const LegacyKey carrier = {ValueIn(boot.initial, kBootCarrier), kPropertiesPath};
  LegacyKey nv = carriers.nv, ssv = carriers.ssv;
  if (!CheckBareKey(nv.source, nv.key, findings)) nv.key.clear();
  // Of a property file the whole text is a key that nothing can match.
  const bool is_bare = ssv.key.find('=') == std::string::npos;
  if (!is_bare || !CheckBareKey(ssv.source, ssv.key, findings)) ssv.key.clear();
  if (carriers.nv_target.empty()) report(nv, kNvMapping);

  const bool known = std::any_of(carriers.mappings.begin(), carriers.mappings.end(),
                                 [&](const CarrierFiles::Mapping& line) {
                                   return line.file == kFirstMapping && line.key == ssv.key;
                                 });
  if (!ssv.key.empty() && carriers.keyed_files.count(ssv.key) == 0 && !known) {
    findings->Add("unknown-carrier", {ssv.source, 1},
                  "no partition has etc/build." + ssv.key + ".prop, and no mapping file the key");
  }

  // The first key is derived only where the device keeps none; then one legacy key is enough.
  const std::vector<const FileEvent*> files = Only<FileEvent>(boot);
  const bool derived = std::any_of(files.begin(), files.end(), [](const FileEvent* file) {
    return file->op == FileOp::kAccess &&
           EndsWith(file->path, std::string("/etc/") + kFirstMapping);
  });
  if (!derived || carriers.legacy_mapped) return;
  for (const LegacyKey& key : {carrier, nv, ssv}) report(key, kFirstMapping);
}

void CheckReach(const CarrierFiles& carriers, const std::set<std::string>& read,
                Findings* findings) {
  std::set<std::string> keys;  // what an NV key is translated to, and what may be an SSV key
  for (const auto& [file, at, key, target] : carriers.mappings) {
    keys.insert(file == kNvMapping ? target : key);
  }
  for (const auto& [key, paths] : carriers.keyed_files) {
    if (keys.count(key) != 0 || IsOperatorKey(key)) continue;
    for (const std::string& path : paths) {
      if (read.count(path) != 0) continue;
      findings->Add("unreached-file", {path},
                    "no mapping file leads to " + Quoted(key) +
                        ", and no operator properties do; only that very SSV key would");
    }
  }
}

void CheckDirectoryOrder(const Survey& survey, const std::vector<Reading>& readings,
                         Findings* findings) {
  using Values = std::map<std::string, std::pair<std::string, Place>>;  // by name
  std::map<std::string, Values> files;                                  // by path
  for (const Reading& reading : readings) {
    const std::string& path = readings[reading.outermost].Path();
    const auto file = survey.files.find(path);
    if (file == survey.files.end() || file->second.kind != FileKind::kKeyedInOrder) continue;
    for (const PropertyLine* line : reading.lines) {
      if (Sets(*line)) files[path][line->name] = {line->value, {reading.Path(), line->line}};
    }
  }
  std::map<std::pair<std::string, std::string>, const Values::mapped_type*> first;
  for (const auto& [path, values] : files) {
    for (const auto& [name, value] : values) {
      const auto [earlier, is_new] =
          first.try_emplace({android::base::Dirname(path), name}, &value);
      if (is_new || earlier->second->first == value.first) continue;
      findings->Add("directory-order", value.second,
                    Quoted(name) + " is " + Quoted(earlier->second->first) +
                        " in another file, and which is read last depends on the directory's order",
                    earlier->second->second);
    }
  }
}

}  // namespace extprop
