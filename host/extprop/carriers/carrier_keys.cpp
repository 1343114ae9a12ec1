#include "host/extprop/carriers/carrier_keys.h"

#include <android-base/logging.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <utility>

#include "host/extprop/boot/in_tree.h"
#include "host/extprop/boot/library_functions.h"

namespace extprop {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CarrierKey, kind, names, target, sources)

namespace {

namespace fs = std::filesystem;
using android::base::Result;
using nlohmann::json;
using How = LaidFile::How;

constexpr const char* kDirectoryKinds[][2] = {{"first", "SimSwitchFirstTime"},
                                              {"current", "SimSwitchCurrentTime"},
                                              {"channel", "switchCarrierChannel"}};
constexpr const char* kMappingKinds[][2] = {{"nv", "flags.prop"}, {"vmcarrier", "nvmap.prop"}};

const std::string kReserve = "/mnt/vendor/vemrareserve/";
const std::string kData = "/data/system/customize/";

using Keys = std::map<std::pair<std::string, std::string>, CarrierKey>;  // by kind and target

void Add(const std::string& kind, const std::string& name, const std::string& target,
         const std::string& source, Keys* keys) {
  CarrierKey& key = (*keys)[{kind, target}];
  key.kind = kind;
  key.target = target;
  for (auto [text, list] : {std::pair(&name, &key.names), std::pair(&source, &key.sources)}) {
    if (std::find(list->begin(), list->end(), *text) == list->end()) list->push_back(*text);
  }
}

void AddMapped(const LibraryFunctions& library, const std::string& root, Keys* keys) {
  for (const auto& [kind, file] : kMappingKinds) {
    const std::string path = root + "/etc/" + file;
    android::init::PropertyMap mapping;
    library.load_properties_from_file_without_se(path.c_str(), nullptr, &mapping);
    for (const auto& [name, value] : mapping) {
      // Another partition's line may decide.
      std::string target;
      library.find_nv_ssv_target_key(name, file, &target);
      if (!name.empty() && !target.empty()) Add(kind, name, target, path, keys);
    }
  }
}

// `path` is in the etc directory of a partition.
void AddKeyedFile(const fs::path& path, Keys* keys) {
  static const std::regex keyed("build\\.((.+-)?.+)\\.prop");
  const std::string file = path.filename();
  std::smatch match;
  if (!std::regex_match(file, match, keyed)) return;
  const auto mapped = keys->find({"nv", match[1]});
  if (mapped != keys->end()) {
    mapped->second.sources.push_back(path);
  } else {
    Add(match[2].matched ? "operator" : "ssv", match[1], match[1], path, keys);
  }
}

// Runs in the private root.
json FindKeys(const LibraryFunctions& library) {
  android::base::SetLogger([](auto...) {});  // what it says of these files, it says in a boot
  Keys keys;
  std::error_code ignored;
  for (const std::string& root : *library.ExtensionPartitionRoots) AddMapped(library, root, &keys);
  for (const std::string& root : *library.ExtensionPartitionRoots) {
    for (const auto& entry : fs::directory_iterator(root + "/etc", ignored)) {
      AddKeyedFile(entry.path(), &keys);
    }
    for (const auto& entry : fs::directory_iterator(root + "/properties", ignored)) {
      const std::string key = entry.path().filename();
      for (const auto& [kind, name] : kDirectoryKinds) {
        const fs::path directory = entry.path() / name;
        if (fs::is_directory(directory, ignored)) Add(kind, key, key, directory, &keys);
      }
    }
  }
  json found = json::array();
  for (const auto& [id, key] : keys) found.push_back(key);
  return found;
}

}  // namespace

json ToJson(const CarrierKey& key) {
  return key;
}

Result<std::vector<CarrierKey>> FindCarrierKeys(const BootPlan& plan) {
  Result<Factory> factory = LoadLibrary(plan.library);
  if (!factory.ok()) return factory.error();
  const LibraryFunctions library = FindLibraryFunctions(*factory);
  Result<std::string> found = RunInTree(plan.device, [&] { return FindKeys(library).dump(); });
  if (!found.ok()) return found.error();
  return json::parse(*found).get<std::vector<CarrierKey>>();
}

void PutInForce(const CarrierKey& key, BootPlan* plan) {
  const std::string& name = key.names.front();
  const std::string& kind = key.kind;
  const std::string ssv = kReserve + "system/ssv/";
  if (kind == "first" || kind == "current") {
    plan->laid.push_back({kData + "sim_switch/sim_switch_" + kind + "_file",
                          "sys.sim.switch." + kind + "=" + name + "\n", How::kReplace});
  } else if (kind == "channel") {
    plan->laid.push_back({kData + "data_common_prop_file.prop",
                          "\npersist.sys.channel.info=" + name + "\n", How::kAppend});
  } else if (kind == "nv") {
    plan->laid.push_back({kReserve + "radio/exp_operator_switch.config", name, How::kReplace});
  } else if (kind == "operator") {
    const size_t dash = name.rfind('-');
    plan->properties["persist.sys.vemra.operator.opta"] = name.substr(0, dash);
    plan->properties["persist.sys.vemra.operator.optb"] = name.substr(dash + 1);
    plan->laid.push_back({ssv + "sim_action_file", "", How::kRemove});
  } else {
    if (kind == "vmcarrier") plan->properties["ro.boot.vmcarrier"] = name;
    if (kind == "ssv") plan->laid.push_back({ssv + "sim_action_file", name, How::kReplace});
    // The first key is derived only where none is kept.
    for (const std::string& path : {ssv + "sim_switch_first_file", ssv + "sim_switch_convert_file",
                                    kData + "sim_switch/sim_switch_first_file"}) {
      plan->laid.push_back({path, "", How::kRemove});
    }
  }
}

}  // namespace extprop
