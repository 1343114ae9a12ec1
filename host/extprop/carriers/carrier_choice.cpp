#include "host/extprop/carriers/carrier_choice.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <stdexcept>
#include <variant>

namespace extprop {

namespace {

using android::base::Error;
using android::base::Result;

using Keys = std::map<std::string, std::string>;  // by kind

constexpr char kFirst[] = "sys.sim.switch.first";
constexpr char kCurrent[] = "sys.sim.switch.current";
constexpr char kConvert[] = "sys.sim.switch.convert";
constexpr char kChannel[] = "persist.sys.channel.info";
constexpr char kBootCarrier[] = "ro.boot.vmcarrier";
constexpr char kOptA[] = "persist.sys.vemra.operator.opta";
constexpr char kOptB[] = "persist.sys.vemra.operator.optb";

constexpr char kFirstFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_first_file";
constexpr char kCurrentFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file";
constexpr char kConvertFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_convert_file";
constexpr char kSimActionFile[] = "/mnt/vendor/vemrareserve/system/ssv/sim_action_file";
constexpr char kNvFile[] = "/mnt/vendor/vemrareserve/radio/exp_operator_switch.config";
constexpr char kDataFirstFile[] = "/data/system/customize/sim_switch/sim_switch_first_file";
constexpr char kDataCommonFile[] = "/data/system/customize/data_common_prop_file.prop";

// What the key pass loads after the first and the current file, in its order: each of them can
// replace what was loaded before.
constexpr const char* kLaterFiles[] = {
    "/data/system/customize/sim_switch/sim_switch_current_file",
    "/mnt/vendor/vemrareserve/system/ssv/sim_switch_common_prop_file",
    kDataFirstFile,
    kDataCommonFile,
    "/mnt/vendor/vemrareserve/system/ssv/force_connect_internet_prop_file",
    "/mnt/vendor/vemrareserve/system/flag/flashback.cfg"};

// In place of whatever is there, a link included, which the library does not follow.
void WriteState(const std::string& path, const std::string& content) {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  unlink(path.c_str());
  if (!android::base::WriteStringToFile(content, path)) {
    throw std::runtime_error("cannot write " + path + " in the private root");
  }
}

bool Sets(const std::string& line, const std::string& name) {
  const size_t equals = line.find('=');
  return equals != std::string::npos && android::base::Trim(line.substr(0, equals)) == name;
}

// Returns what is left of the file without the lines that set `name`.
std::string Without(const std::string& name, const std::string& content) {
  std::vector<std::string> lines = android::base::Split(content, "\n");
  const auto sets = [&](const std::string& line) { return Sets(line, name); };
  lines.erase(std::remove_if(lines.begin(), lines.end(), sets), lines.end());
  return android::base::Join(lines, "\n");
}

void ClearFrom(const char* const* first, const std::string& name) {
  for (; first != std::end(kLaterFiles); ++first) {
    std::string content;
    if (!android::base::ReadFileToString(*first, &content)) continue;
    const std::string left = Without(name, content);
    if (left != content) WriteState(*first, left);
  }
}

// Makes the file that holds a property the last one that sets it.
void SetIn(const std::string& file, const std::string& name, const std::string& value) {
  const auto* place = std::find(std::begin(kLaterFiles), std::end(kLaterFiles), file);
  std::string content;
  if (place != std::end(kLaterFiles)) {
    android::base::ReadFileToString(file, &content);
    content = Without(name, content);
    if (!content.empty() && content.back() != '\n') content += '\n';
    ++place;
  } else {
    place = kLaterFiles;
  }
  WriteState(file, content.append(name).append("=").append(value).append("\n"));
  ClearFrom(place, name);
}

// Runs in the private root.
void WriteStateFiles(const Keys& keys) {
  const auto has = [&](const char* kind) { return keys.count(kind) != 0; };
  // The boot carrier's and the SSV key are looked at only where the first key is not known yet.
  if (has("ssv") || (has("vmcarrier") && !has("first"))) {
    unlink(kFirstFile);
    unlink(kConvertFile);
    ClearFrom(kLaterFiles, kFirst);
  }
  if (has("first")) SetIn(has("ssv") ? kDataFirstFile : kFirstFile, kFirst, keys.at("first"));
  if (has("current")) SetIn(kCurrentFile, kCurrent, keys.at("current"));
  if (has("channel")) SetIn(kDataCommonFile, kChannel, keys.at("channel"));
  if (has("nv")) WriteState(kNvFile, keys.at("nv"));
  if (has("ssv")) WriteState(kSimActionFile, keys.at("ssv"));
  // Where the SSV key is read, it keeps the operator's from being used.
  if (has("operator") && access(kFirstFile, F_OK) != 0) unlink(kSimActionFile);
}

// What the key pass finds in files; without one, an earlier boot has left it set.
void SetFound(const std::string& name, const std::string& value, BootPlan* plan) {
  const bool searched =
      std::any_of(plan->steps.begin(), plan->steps.end(), [](const PlannedStep& step) {
        return step.loader != nullptr && std::string(step.loader->name) == "persist";
      });
  plan->properties.erase(name);
  if (!searched) plan->properties[name] = value;
}

void SetProperties(const Keys& keys, BootPlan* plan) {
  for (const auto& [kind, key] : keys) {
    if (kind == "first") SetFound(kFirst, key, plan);
    if (kind == "current") SetFound(kCurrent, key, plan);
    if (kind == "channel") SetFound(kChannel, key, plan);
    if (kind == "operator") {
      const size_t dash = key.find('-');
      plan->properties[kOptA] = key.substr(0, dash);
      plan->properties[kOptB] = key.substr(dash + 1);
    }
    if (kind == "vmcarrier") plan->properties[kBootCarrier] = key;
    if (kind == "ssv" || kind == "vmcarrier") {
      plan->properties.erase(kConvert);
      if (keys.count("first") == 0) plan->properties.erase(kFirst);
    }
  }
}

// The beginnings of the names and paths that choices change.
constexpr const char* kChangedNames[] = {kBootCarrier, "sys.sim.switch.", kChannel, kOptA, kOptB};
constexpr const char* kChangedPaths[] = {"/mnt/vendor/vemrareserve/", "/data/"};

bool MayChange(const std::string& name) {
  return std::any_of(std::begin(kChangedNames), std::end(kChangedNames),
                     [&](const char* changed) { return android::base::StartsWith(name, changed); });
}

bool MayChangeAt(const std::string& path) {
  return std::any_of(std::begin(kChangedPaths), std::end(kChangedPaths),
                     [&](const char* changed) { return android::base::StartsWith(path, changed); });
}

// Whether nothing that choices change has a part in it.
bool IsFixed(const HandOver& map) {
  if (map.mode == kStoredProperties) return true;  // it belongs to what comes next
  return std::none_of(map.entries.begin(), map.entries.end(),
                      [](const Entry& entry) { return MayChange(entry.name); });
}
bool IsFixed(const FileEvent& file) {
  const bool reads =
      file.op == FileOp::kRead || file.op == FileOp::kAccess || file.op == FileOp::kList;
  return reads && !MayChangeAt(file.path);
}
// An expansion.
bool IsFixed(const PropertyLine& line) {
  return line.text.find("${") == std::string::npos ||
         std::none_of(std::begin(kChangedNames), std::end(kChangedNames), [&](const char* changed) {
           return line.text.find(changed) != std::string::npos;
         });
}
bool IsFixed(const LogLine& /*line*/) {
  return true;
}
bool IsFixed(const MountEvent& /*mount*/) {
  return false;
}
bool IsFixed(const PropertySet& /*set*/) {
  return false;
}

}  // namespace

bool FirstStepsAreFixed(const BootPlan& plan, const BootRecord& record) {
  for (size_t i = 0; i < record.steps.size(); ++i) {
    if (plan.steps[i].loader == nullptr || !plan.steps[i].loader->fills_map) break;
    for (const Event& event : record.steps[i].events) {
      if (!std::visit([](const auto& what) { return IsFixed(what); }, event.what)) return false;
    }
    for (const PropertyFile& file : record.property_files) {
      if (file.step == i && MayChangeAt(file.device_path)) return false;
    }
  }
  return true;
}

Result<CarrierChoice> ParseCarrierChoice(const std::string& text) {
  const size_t equals = text.find('=');
  const CarrierChoice choice = {text.substr(0, equals),
                                equals == std::string::npos ? "" : text.substr(equals + 1)};
  const std::vector<std::string> kinds(std::begin(kCarrierKinds), std::end(kCarrierKinds));
  if (std::find(kinds.begin(), kinds.end(), choice.kind) == kinds.end() || choice.key.empty()) {
    return Error() << "not KIND=KEY with a kind of " << android::base::Join(kinds, ", ");
  }
  if (choice.key.find_first_of(std::string("\n\0", 2)) != std::string::npos) {
    return Error() << "a key is one line";
  }
  const size_t dash = choice.key.find('-');
  const bool two = dash != 0 && dash < choice.key.size() - 1;
  if (choice.kind == "operator" && !two) return Error() << "an operator is OPTA-OPTB";
  return choice;
}

std::vector<CarrierChoice> Override(const std::vector<CarrierChoice>& base,
                                    const std::vector<CarrierChoice>& choices) {
  // Of an SSV key and an operator only one counts.
  const auto place = [](const std::string& kind) { return kind == "operator" ? "ssv" : kind; };
  std::vector<CarrierChoice> together = base;
  const auto replaced = [&](const CarrierChoice& old) {
    return std::any_of(choices.begin(), choices.end(), [&](const CarrierChoice& choice) {
      return place(choice.kind) == place(old.kind);
    });
  };
  together.erase(std::remove_if(together.begin(), together.end(), replaced), together.end());
  together.insert(together.end(), choices.begin(), choices.end());
  return together;
}

Result<void> PutInForce(const std::vector<CarrierChoice>& choices, BootPlan* plan) {
  Keys keys;
  for (const auto& [kind, key] : choices) {
    if (!keys.emplace(kind, key).second) return Error() << "a device has only one " << kind;
  }
  if (keys.count("ssv") != 0 && keys.count("operator") != 0) {
    return Error() << "an operator counts only on a device without ssv";
  }
  if (keys.empty()) return {};
  SetProperties(keys, plan);
  plan->prepare = [keys] { WriteStateFiles(keys); };
  return {};
}

}  // namespace extprop
