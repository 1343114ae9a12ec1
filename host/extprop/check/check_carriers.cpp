#include <android-base/file.h>

#include <filesystem>
#include <map>

#include "host/extprop/check/check_context.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::Result;

constexpr const char* kBootCarrier = "ro.boot.vmcarrier";

// A property whose value is a carrier key, and the action that loads its directories.
struct KeyedAction {
  const char* property;
  const char* action;
};

constexpr KeyedAction kKeyedActions[] = {{"sys.sim.switch.current", "simSwitchCurrent"},
                                         {"sys.sim.switch.first", "simSwitchFirst"},
                                         {"persist.sys.channel.info", "switchCarrierChannel"}};

std::vector<fs::path> Subdirectories(const fs::path& directory) {
  std::vector<fs::path> found;
  std::error_code error;
  fs::directory_iterator entry(directory, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    if (entry->is_directory(error)) found.push_back(entry->path());
  }
  return found;
}

// Returns the directories of all partitions that the library looks into for `key`.
std::set<std::string> ReachableDirectories(CheckContext* context, const std::string& key) {
  std::set<std::string> reachable;
  for (const auto& [property, action] : kKeyedActions) {
    for (const FileEvent& file :
         Only<FileEvent>(context->Call("simswitch", action, {{property, key}}))) {
      if (file.op == FileOp::kList) reachable.insert(file.path);
    }
  }
  return reachable;
}

// Reports the files that the boot had to upgrade.
void CheckUpgrades(CheckContext* context) {
  bool upgrades = false;
  for (const Step& step : context->boot.steps) {
    for (const Event& event : step.events) {
      const auto* log = std::get_if<LogLine>(&event.what);
      const auto* file = std::get_if<FileEvent>(&event.what);
      if (log != nullptr && After(log->message, "Convert tmp_") != nullptr) upgrades = true;
      if (!upgrades || file == nullptr || file->op != FileOp::kWrite) continue;
      context->Report("old-state-file", file->path, 1,
                      "a bare key, the old format; the next boot rewrites it");
      upgrades = false;
    }
  }
}

void CheckSpace(CheckContext* context, const std::string& path, const std::string& content) {
  size_t number = 0;
  for (const std::string& line : android::base::Split(content, "\n")) {
    ++number;
    if (line.empty() || android::base::Trim("x" + line) == "x" + line) continue;
    context->Report("trailing-space", path, number, "white space at the end of the line");
  }
  const bool bare = content.find('=') == std::string::npos;
  if (bare && android::base::EndsWith(content, "\n")) {
    context->Report("trailing-space", path, 1, "the line feed becomes part of the key");
  }
}

}  // namespace

Result<void> CheckMappedKeys(CheckContext* context) {
  const auto check = [&](const std::string& key, const char* mapping, const std::string& path) {
    std::string target;
    context->library.find_nv_ssv_target_key(key, mapping, &target);
    if (key.empty() || !target.empty()) return;
    context->Report("unmapped-key", path, path[0] == '/' ? 1 : 0,
                    "no etc/" + std::string(mapping) + " knows the key '" + key + "'");
  };
  std::string nv_key, nv_target, ssv_key;
  std::string nv_path, ssv_path;
  for (const FileEvent& file : Only<FileEvent>(
           context->Observe([&] { context->library.load_old_nv_key(&nv_key, &nv_target); }))) {
    if (file.op != FileOp::kRead) break;  // the mapping files are looked for
    nv_path = file.path;
  }
  for (const FileEvent& file :
       Only<FileEvent>(context->Observe([&] { context->library.read_old_ssv_key(&ssv_key); }))) {
    ssv_path = file.path;
  }
  check(nv_key, kNvToTargetMapping, nv_path);

  // The first key is derived only where the boot finds none.
  const std::string mapping = std::string("/") + kFirstKeyMapping;
  bool derived = false;
  for (const FileEvent& file : Only<FileEvent>(context->boot)) {
    derived |= file.op == FileOp::kAccess && android::base::EndsWith(file.path, mapping);
  }
  if (!derived) return {};
  const auto boot_carrier = context->plan.properties.find(kBootCarrier);
  if (boot_carrier != context->plan.properties.end()) {
    check(boot_carrier->second, kFirstKeyMapping, "<properties>");
  }
  check(nv_key, kFirstKeyMapping, nv_path);
  check(ssv_key, kFirstKeyMapping, ssv_path);
  return {};
}

Result<void> CheckCarrierDirectories(CheckContext* context) {
  std::map<std::string, std::set<std::string>> reachable;  // by key
  for (const std::string& root : *context->library.ExtensionPartitionRoots) {
    for (const fs::path& keyed : Subdirectories(root + "/properties")) {
      const std::string key = keyed.filename();
      if (reachable.count(key) == 0) reachable[key] = ReachableDirectories(context, key);
      for (const fs::path& directory : Subdirectories(keyed)) {
        if (reachable[key].count(directory) != 0) continue;
        context->Report("unreachable-directory", directory, 0,
                        "the library never looks into it for the key '" + key + "'");
      }
    }
  }
  return {};
}

Result<void> CheckStateFiles(CheckContext* context) {
  CheckUpgrades(context);
  for (const FileEvent& file : Only<FileEvent>(context->boot)) {
    std::string content;  // from before the boot
    if (file.op == FileOp::kRead && IsStateFile(file.path) &&
        android::base::ReadFileToString(file.path, &content)) {
      CheckSpace(context, file.path, content);
    }
  }
  return {};
}

}  // namespace extprop
