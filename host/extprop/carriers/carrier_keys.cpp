#include "host/extprop/carriers/carrier_keys.h"

#include <android-base/logging.h>
#include <android-base/strings.h>
#include <wctype.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "host/extprop/boot/in_tree.h"
#include "host/extprop/boot/library_functions.h"
#include "host/extprop/boot/nearest_names.h"
#include "host/extprop/boot/pack.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::Result;

constexpr const char* kDirectoryKinds[][2] = {{"first", "SimSwitchFirstTime"},
                                              {"current", "SimSwitchCurrentTime"},
                                              {"channel", "switchCarrierChannel"}};
constexpr size_t kNvBytes = 8;

struct Mapped {
  std::string target;
  std::vector<std::string> files;
};
using Mapping = std::map<std::string, Mapped>;  // by the raw key

// What the mapping files of that name make of each key that any of them has.
Mapping ReadMapping(const LibraryFunctions& library, const std::string& file) {
  Mapping mapping;
  for (const std::string& root : *library.ExtensionPartitionRoots) {
    const std::string path = std::string(root).append("/etc/").append(file);
    android::init::PropertyMap lines;
    library.load_properties_from_file_without_se(path.c_str(), nullptr, &lines);
    for (const auto& [key, target] : lines) {
      Mapped& mapped = mapping[key];
      mapped.target = target;
      mapped.files.push_back(path);
    }
  }
  for (auto& [key, mapped] : mapping) {
    if (mapped.files.size() > 1) library.find_nv_ssv_target_key(key, file, &mapped.target);
  }
  mapping.erase("");
  return mapping;
}

// Whether two operator properties can come to the key, whose bytes are lower-cased.
bool IsOperator(const std::string& key) {
  const size_t dash = key.find('-');
  if (dash == 0 || dash == std::string::npos || dash == key.size() - 1) return false;
  return std::all_of(key.begin(), key.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return static_cast<unsigned char>(towlower(byte)) == byte;
  });
}

// Collects the keys of the root that this process is in.
class Finder {
 public:
  Finder(const LibraryFunctions& library, const std::string& cota_root)
      : flags_(ReadMapping(library, "flags.prop")), nvmap_(ReadMapping(library, "nvmap.prop")) {
    std::vector<std::string> roots(std::begin(*library.ExtensionPartitionRoots),
                                   std::end(*library.ExtensionPartitionRoots));
    if (!cota_root.empty() && cota_root != "0") roots.push_back(cota_root);
    for (const std::string& root : roots) Look(root);
  }

  std::vector<CarrierKey> Find() {
    AddNv();
    AddKeyedFiles();
    for (const auto& [name, mapped] : nvmap_) {
      const bool is_other = flags_.count(name) != 0 || files_.count(name) != 0;
      Add("vmcarrier", name, name, mapped.files).listed = !is_other;
      // Of the others nothing tells which kind they are.
      if (flags_.count(name) == 0 && name.size() <= kNvBytes) {
        Add("nv", name, "", mapped.files).listed = false;
      }
      if (files_.count(name) == 0) Add("ssv", name, name, mapped.files).listed = false;
    }
    std::vector<CarrierKey> found;
    for (const char* kind : kCarrierKinds) {
      for (auto& [name, key] : keys_[kind]) found.push_back(std::move(key));
    }
    return found;
  }

 private:
  // Sorted, as a directory's order differs from one file system to another.
  static std::set<fs::path> List(const std::string& directory) {
    std::error_code ignored;
    const fs::directory_iterator entries(directory, ignored);
    return {begin(entries), end(entries)};
  }

  void Look(const std::string& root) {
    constexpr std::string_view kBefore = "build.", kBehind = ".prop";
    for (const fs::path& path : List(root + "/etc")) {
      const std::string file = path.filename();
      if (!android::base::StartsWith(file, kBefore) || !android::base::EndsWith(file, kBehind) ||
          file.size() <= kBefore.size() + kBehind.size()) {
        continue;
      }
      files_[file.substr(kBefore.size(), file.size() - kBefore.size() - kBehind.size())].push_back(
          path);
    }
    std::error_code ignored;
    for (const fs::path& path : List(root + "/properties")) {
      for (const auto& [kind, name] : kDirectoryKinds) {
        if (!fs::is_directory(path / name, ignored)) continue;
        Add(kind, path.filename(), path.filename(), {path / name});
      }
    }
  }

  void AddNv() {
    for (const auto& [name, mapped] : flags_) {
      CarrierKey& key = Add("nv", name, mapped.target, mapped.files);
      if (name.size() > kNvBytes) key.never = "over eight bytes, so that no NV key matches";
      const auto file = files_.find(mapped.target);
      if (file == files_.end()) continue;
      key.sources.insert(key.sources.end(), file->second.begin(), file->second.end());
      targets_.insert(mapped.target);
    }
  }

  void AddKeyedFiles() {
    for (const auto& [name, paths] : files_) {
      const bool has_dash = name.find('-') != std::string::npos;
      const bool is_operator = IsOperator(name);
      if (is_operator) Add("operator", name, name, paths).listed = targets_.count(name) == 0;
      Add("ssv", name, name, paths).listed =
          targets_.count(name) == 0 && !is_operator && (!has_dash || nvmap_.count(name) != 0);
    }
  }

  CarrierKey& Add(const std::string& kind, const std::string& name, const std::string& target,
                  const std::vector<std::string>& sources) {
    CarrierKey& key = keys_[kind][name];
    key.kind = kind;
    key.name = name;
    key.target = target;
    key.sources.insert(key.sources.end(), sources.begin(), sources.end());
    const auto mapped = nvmap_.find(name);
    const bool raw = kind == "nv" || kind == "ssv" || kind == "vmcarrier";
    if (!raw || mapped == nvmap_.end() || !key.first.empty()) return key;
    key.first = mapped->second.target;
    if (kind == "nv" && flags_.count(name) != 0) {
      key.sources.insert(key.sources.end(), mapped->second.files.begin(),
                         mapped->second.files.end());
    }
    return key;
  }

  const Mapping flags_, nvmap_;
  std::map<std::string, std::vector<std::string>> files_;  // etc/build.KEY.prop, by key
  std::set<std::string> targets_;                          // the keys of files that flags_ leads to
  std::map<std::string, std::map<std::string, CarrierKey>> keys_;  // by kind and name
};

std::string Doubt(const CarrierChoice& choice, const std::vector<CarrierKey>& keys) {
  std::string key = choice.key;
  std::string doubt;
  if (choice.kind == "nv" && key.size() > kNvBytes) {
    key.resize(kNvBytes);
    doubt = "only the first eight bytes of an NV key count, " + key;
  }
  if (choice.kind == "operator") {
    for (char& c : key) c = static_cast<char>(towlower(static_cast<unsigned char>(c)));
  }
  std::set<std::string> names, kinds;
  for (const CarrierKey& known : keys) {
    if (known.kind == choice.kind && known.never.empty()) names.insert(known.name);
    if (known.name == key && known.listed && known.never.empty()) kinds.insert(known.kind);
  }
  if (names.count(key) != 0) return doubt;
  doubt += (doubt.empty() ? "" : "; ") + std::string("nothing on the device knows this key");
  if (!kinds.empty()) {
    return doubt + " as " + choice.kind + ", but as " + android::base::Join(kinds, " and ");
  }
  const std::vector<std::string> nearest = NearestNames(key, names);
  if (!nearest.empty()) doubt += "; the nearest are " + android::base::Join(nearest, ", ");
  return doubt;
}

}  // namespace

nlohmann::json ToJson(const CarrierKey& key) {
  return {{"kind", key.kind},   {"name", key.name},       {"target", key.target},
          {"first", key.first}, {"sources", key.sources}, {"never", key.never}};
}

Result<std::vector<CarrierKey>> FindCarrierKeys(const BootPlan& plan) {
  Result<Factory> factory = LoadLibrary(plan.library);
  if (!factory.ok()) return factory.error();
  const LibraryFunctions library = FindLibraryFunctions(*factory);
  const auto cota = plan.properties.find("sys.cota.load.properties");
  Result<std::string> found = RunInTree(plan.device, [&] {
    android::base::SetLogger([](auto...) {});  // what it says of these files, it says in a boot
    return Pack(Finder(library, cota == plan.properties.end() ? "" : cota->second).Find());
  });
  if (!found.ok()) return found.error();
  return Unpack<std::vector<CarrierKey>>(*found);
}

std::vector<CarrierChoice> ChoicesOf(const std::vector<CarrierKey>& keys) {
  std::vector<CarrierChoice> choices;
  for (const CarrierKey& key : keys) {
    if (key.listed && key.never.empty()) choices.push_back({key.kind, key.name});
  }
  return choices;
}

std::vector<std::string> Doubts(const std::vector<CarrierChoice>& choices,
                                const std::vector<CarrierKey>& keys) {
  std::vector<std::string> doubts;
  for (const CarrierChoice& choice : choices) {
    const std::string doubt = Doubt(choice, keys);
    if (!doubt.empty()) doubts.push_back(choice.kind + "=" + choice.key + ": " + doubt);
  }
  return doubts;
}

}  // namespace extprop
