#include <algorithm>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "host/extprop/boot/device_layout.h"
#include "host/extprop/check/checks.h"
#include "host/extprop/render/terminal.h"

namespace extprop {

namespace {

using android::base::EndsWith;

// The copies of state files, which are not upgraded from the old format.
constexpr const char* kCopies[] = {kDataFirstFile, kDataCurrentFile};

// What the boot read of the file as a text, before it wrote it; empty where it did not.
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
  findings->Add("unknown-carrier", at,
                carriers.no_partition + " has a directory properties/" + WithoutInvisible(key));
}

// Checks a state file whose whole text is a key where it does not set the property.
void CheckUpgraded(const BootRecord& boot, const Reading& reading, const CarrierFiles& carriers,
                   Findings* findings) {
  const std::string& path = reading.Path();
  std::string key = TextOf(boot, reading.file->path);
  const bool rewritten = !key.empty();
  if (!rewritten) android::base::ReadFileToString(path, &key);
  if (key.empty()) {
    return findings->Add("old-state-file", {path},
                         reading.file->path == kFirstFile
                             ? "it names no carrier, and keeps the first key from being derived"
                             : "it names no carrier");
  }
  findings->Add("old-state-file", {path, 1},
                rewritten ? "a bare key, the old format; the next boot rewrites it"
                          : "a bare key, the old format; a boot without its property rewrites it");
  if (CheckBareKey(path, key, findings)) CheckCarrier({path, 1}, key, carriers, findings);
}

}  // namespace

bool IsBareKey(const Reading& reading) {
  const std::string& path = reading.file->path;
  if (BareKeyProperty(path) == nullptr && !Has(kCopies, path) && path != kSimActionFile) {
    return false;
  }
  bool bare = false;
  for (const PropertyLine* line : reading.lines) {
    if (Sets(*line)) return false;
    bare = bare || line->outcome == LineOutcome::kNoProperty;
  }
  return bare;
}

void CheckStateFiles(const BootRecord& boot, const std::vector<Reading>& readings,
                     const CarrierFiles& carriers, Findings* findings) {
  std::set<std::string> written;  // by the boot, for its own use
  for (const FileEvent* file : Only<FileEvent>(boot)) {
    if (file->op == FileOp::kWrite && !file->existed) written.insert(file->path);
  }
  for (const Reading& reading : readings) {
    const std::string& path = reading.Path();
    const std::string& known_as = reading.file->path;
    if (!Has(kStateFiles, known_as) || !reading.file->error.empty() || written.count(known_as) != 0)
      continue;
    if (IsBareKey(reading) && Has(kCopies, known_as)) {
      findings->Add("old-state-file", {path, 1}, "a bare key, which is ignored in this file");
    }
    const char* property = BareKeyProperty(known_as);
    const bool sets_it =
        std::any_of(reading.lines.begin(), reading.lines.end(), [&](const PropertyLine* line) {
          return property != nullptr && Sets(*line) && line->name == property;
        });
    if (property != nullptr && !sets_it) {
      CheckUpgraded(boot, reading, carriers, findings);
      continue;
    }
    for (const PropertyLine* line : reading.lines) {
      if (!Sets(*line) || KeyedBy(line->name) == nullptr) continue;
      CheckCarrier({path, line->line}, line->value, carriers, findings);
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
    if (target.empty()) {
      const bool counts = ValueIn(nv ? carriers.nv_keys : carriers.first_keys, key).target.empty();
      if (counts) findings->Add("missing-target", at, Quoted(key) + " leads nowhere");
      continue;
    }
    const bool known = nv ? carriers.keyed_files.count(target) != 0
                          : carriers.keyed_directories.count(target) != 0;
    if (known) continue;
    findings->Add("missing-target", at,
                  carriers.no_partition + " has " +
                      (nv ? "etc/build." + WithoutInvisible(target) + ".prop"
                          : "a directory properties/" + WithoutInvisible(target)));
  }
}

void CheckLegacyKeys(const BootRecord& boot, const CarrierFiles& carriers, Findings* findings) {
  // Each with the place that it is from.
  using Key = std::pair<std::string, Place>;
  const Key carrier = {ValueIn(boot.initial, kBootCarrier), {kPropertiesPath}};
  Key nv, ssv = {TextOf(boot, kSimActionFile), {kSimActionFile, 1}};
  for (const char* source : kNvSources) {
    if (nv.first.empty()) nv = {TextOf(boot, source).substr(0, kNvKeySize), {source, 1}};
  }
  if (!CheckBareKey(nv.second.path, nv.first, findings)) nv.first.clear();
  // Of a property file the whole text is a key that nothing can match.
  const bool is_bare = ssv.first.find('=') == std::string::npos;
  if (!is_bare || !CheckBareKey(kSimActionFile, ssv.first, findings)) ssv.first.clear();

  // They count as far as their first NUL byte.
  const auto report = [&](const Key& key, const auto& mappings, const char* file) {
    const std::string named = key.first.c_str();
    if (named.empty() || mappings.count(named) != 0) return;
    findings->Add("unmapped-key", key.second,
                  carriers.no_partition + "'s etc/" + file + " knows the key " + Quoted(named));
  };
  report(nv, carriers.nv_keys, kNvMapping);
  const bool known = carriers.keyed_files.count(ssv.first) != 0 ||
                     carriers.first_keys.count(ssv.first.c_str()) != 0;
  if (!ssv.first.empty() && !known) {
    findings->Add("unknown-carrier", ssv.second,
                  carriers.no_partition + " has etc/build." + WithoutInvisible(ssv.first) +
                      ".prop, and no etc/" + kFirstMapping + " the key");
  }

  // The first key is derived only where the device keeps none; then one legacy key is enough.
  const std::vector<const FileEvent*> files = Only<FileEvent>(boot);
  const bool derived = std::any_of(files.begin(), files.end(), [](const FileEvent* file) {
    return file->op == FileOp::kAccess &&
           EndsWith(file->path, std::string("/etc/") + kFirstMapping);
  });
  const auto is_mapped = [&](const Key& key) {
    return !ValueIn(carriers.first_keys, key.first.c_str()).target.empty();
  };
  if (!derived || is_mapped(carrier) || is_mapped(nv) || is_mapped(ssv)) return;
  for (const Key& key : {carrier, nv, ssv}) report(key, carriers.first_keys, kFirstMapping);
}

void CheckReach(const CarrierFiles& carriers, const std::set<std::string>& read,
                Findings* findings) {
  std::set<std::string> keys;  // what an NV key is translated to, and what may be an SSV key
  for (const auto& [key, mapped] : carriers.nv_keys) {
    if (key.size() <= kNvKeySize) keys.insert(mapped.target);
  }
  for (const auto& [key, mapped] : carriers.first_keys) keys.insert(key);
  for (const auto& [key, paths] : carriers.keyed_files) {
    if (keys.count(key) != 0 || IsOperatorKey(key)) continue;
    for (const std::string& path : paths) {
      if (read.count(path) != 0) continue;
      findings->Add("unreached-file", {path},
                    "no mapping in force leads to " + Quoted(key) +
                        ", and no operator properties do; only that very SSV key would");
    }
  }
}

void CheckDirectoryOrder(const Survey& survey, Findings* findings) {
  using Values = std::map<std::string, std::pair<std::string, Place>>;  // by name
  std::map<std::string, Values> files;  // by path, what each ends with
  for (const PropertyLine* line : Only<PropertyLine>(*survey.record)) {
    const auto& read = survey.record->property_files;
    const std::string& path = read[OutermostFile(*survey.record, line->file)].device_path;
    if (!Sets(*line) || ValueIn(survey.files, path).kind != FileKind::kKeyedInOrder) continue;
    files[path][line->name] = {line->value, {read[line->file].device_path, line->line}};
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
