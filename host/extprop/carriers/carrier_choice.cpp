#include "host/extprop/carriers/carrier_choice.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <stdexcept>

#include "host/extprop/boot/device_layout.h"

namespace extprop {

namespace {

using Keys = std::map<std::string, std::string>;  // by kind

// In place of whatever is there, a link included, which the library does not follow.
void WriteState(const std::string& path, const std::string& content) {
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
  unlink(path.c_str());
  if (!android::base::WriteStringToFile(content, path)) {
    throw std::runtime_error("cannot write " + path + " in the private root");
  }
}

// Empties the lines that set `name` in the files.
void ClearFrom(const char* const* first, const std::string& name) {
  const auto sets = [&](const std::string& line) {
    const size_t equals = line.find('=');
    return equals != std::string::npos && android::base::Trim(line.substr(0, equals)) == name;
  };
  for (; first != std::end(kLaterFiles); ++first) {
    std::string content;
    if (!android::base::ReadFileToString(*first, &content)) continue;
    std::vector<std::string> lines = android::base::Split(content, "\n");
    // All others keep their numbers.
    if (std::none_of(lines.begin(), lines.end(), sets)) continue;
    std::replace_if(lines.begin(), lines.end(), sets, "");
    WriteState(*first, android::base::Join(lines, "\n"));
  }
}

// Makes the file that holds a property the last one that sets it.
void SetIn(const std::string& file, const std::string& name, const std::string& value) {
  const auto* place = std::find(std::begin(kLaterFiles), std::end(kLaterFiles), file);
  const bool is_later = place != std::end(kLaterFiles);
  ClearFrom(is_later ? place : std::begin(kLaterFiles), name);
  std::string content;
  if (is_later) android::base::ReadFileToString(file, &content);
  if (!content.empty() && content.back() != '\n') content += '\n';
  WriteState(file, content.append(name).append("=").append(value).append("\n"));
}

// Returns the file that holds the key of a choice; "" where none does.
std::string FileOf(const std::string& kind, const Keys& keys) {
  // Where the SSV key counts there is no first file.
  if (kind == "first") return keys.count("ssv") != 0 ? kDataFirstFile : kFirstFile;
  if (kind == "current") return kCurrentFile;
  if (kind == "channel") return kDataCommonFile;
  if (kind == "nv") return kNvSources[0];
  return kind == "ssv" ? kSimActionFile : "";
}

// Whether the first key of the device is derived from another carrier than was chosen, or keeps the
// chosen one from being looked at.
bool ContradictsFirstFile(const Keys& keys) {
  if (keys.count("ssv") != 0) return true;
  if (keys.count("first") != 0) return false;
  if (keys.count("vmcarrier") != 0) return true;
  return (keys.count("nv") != 0 || keys.count("operator") != 0) && access(kConvertFile, F_OK) == 0;
}

// Runs in the private root.
void WriteStateFiles(const Keys& keys) {
  if (ContradictsFirstFile(keys)) {
    unlink(kFirstFile);
    unlink(kConvertFile);
    // What other files say is the user's choice, which an NV key does not contradict.
    if (keys.count("ssv") + keys.count("vmcarrier") != 0) ClearFrom(kLaterFiles, kFirstKey);
  }
  for (const auto& [kind, key] : keys) {
    const std::string file = FileOf(kind, keys);
    if (kind == "nv" || kind == "ssv") {
      WriteState(file, key);
    } else if (!file.empty()) {
      SetIn(file, PropertyOf(kind), key);
    }
  }
  for (const char* name : {kOperatorA, kOperatorB}) {
    if (keys.count("operator") != 0) ClearFrom(kLaterFiles, name);
  }
  // Where the SSV key is read, it keeps the operator's from being used.
  if (keys.count("operator") != 0 && access(kFirstFile, F_OK) != 0) unlink(kSimActionFile);
}

void SetProperties(const Keys& keys, BootPlan* plan) {
  Properties& properties = plan->properties;
  for (const auto& [kind, key] : keys) {
    if (CarrierChoice{kind, key}.IsProperty()) properties[kind] = key;
  }
  // The key pass finds these in files; without one, an earlier boot has left them set.
  const bool searched =
      std::any_of(plan->steps.begin(), plan->steps.end(), [](const PlannedStep& step) {
        return step.loader != nullptr && std::string(step.loader->name) == "persist";
      });
  for (const KeyedDirectory& keyed : kKeyedDirectories) {
    if (keys.count(keyed.kind) == 0) continue;
    properties.erase(keyed.property);
    if (!searched) properties[keyed.property] = keys.at(keyed.kind);
  }
  if (keys.count("operator") != 0) {
    const std::string& key = keys.at("operator");
    properties[kOperatorA] = key.substr(0, OperatorDash(key));
    properties[kOperatorB] = key.substr(OperatorDash(key) + 1);
  }
  if (keys.count("vmcarrier") != 0) properties[kBootCarrier] = keys.at("vmcarrier");
  const bool derives = keys.count("nv") + keys.count("operator") != 0;
  if (keys.count("ssv") + keys.count("vmcarrier") != 0 ||
      (derives && ValueIn(properties, kConverted) == "true")) {
    properties.erase(kConverted);
    if (keys.count("first") == 0) properties.erase(kFirstKey);
  }
}

// Returns the kind of carrier whose key a property holds; of any other its name.
std::string KindBehind(const std::string& property) {
  if (const KeyedDirectory* keyed = KeyedBy(property)) return keyed->kind;
  if (property == kOperatorA || property == kOperatorB) return "operator";
  return property == kBootCarrier ? "vmcarrier" : property;
}

}  // namespace

const std::vector<std::string>& CarrierKinds() {
  static const std::vector<std::string> kinds = {"first", "current",  "channel",  "nv",
                                                 "ssv",   "operator", "vmcarrier"};
  return kinds;
}

std::string Titles(const std::vector<CarrierChoice>& choices, const char* separator) {
  std::vector<std::string> titles;
  titles.reserve(choices.size());
  for (const CarrierChoice& choice : choices) titles.push_back(choice.Title());
  return android::base::Join(titles, separator);
}

Result<CarrierChoice> ParseCarrierChoice(const std::string& text) {
  const size_t equals = text.find('=');
  const CarrierChoice choice = {text.substr(0, equals),
                                equals == std::string::npos ? "" : text.substr(equals + 1)};
  if (!Has(CarrierKinds(), choice.kind) || choice.key.empty()) {
    return Error() << "not KIND=KEY with a kind of " << android::base::Join(CarrierKinds(), ", ");
  }
  if (choice.key.find_first_of(std::string("\n\0", 2)) != std::string::npos) {
    return Error() << "a key is one line";
  }
  if (choice.kind == "operator" && OperatorDash(choice.key) == std::string::npos) {
    return Error() << "an operator is OPTA-OPTB";
  }
  return choice;
}

std::vector<CarrierChoice> Override(const std::vector<CarrierChoice>& base,
                                    const std::vector<CarrierChoice>& choices) {
  // Of an SSV key and an operator only one counts.
  const auto place = [](const CarrierChoice& choice) {
    const std::string kind = choice.IsProperty() ? KindBehind(choice.kind) : choice.kind;
    return kind == "operator" ? "ssv" : kind;
  };
  std::vector<CarrierChoice> together;
  for (const CarrierChoice& old : base) {
    const auto replaces = [&](const CarrierChoice& choice) { return place(choice) == place(old); };
    if (std::none_of(choices.begin(), choices.end(), replaces)) together.push_back(old);
  }
  together.insert(together.end(), choices.begin(), choices.end());
  return together;
}

Result<void> PutInForce(const std::vector<CarrierChoice>& choices, BootPlan* plan,
                        const std::string& by) {
  Keys keys;
  for (const auto& [kind, key] : choices) {
    if (!keys.emplace(kind, key).second) return Error() << "a device has only one " << kind;
  }
  if (keys.count("ssv") != 0 && keys.count("operator") != 0) {
    return Error() << "an operator counts only on a device without ssv";
  }
  for (const auto& [kind, key] : keys) {
    const std::string behind = KindBehind(kind);
    if (behind != kind && keys.count(behind) != 0) return Error() << behind << " sets " << kind;
  }
  if (keys.empty()) return {};
  SetProperties(keys, plan);
  plan->prepare = [keys, before = plan->prepare] {
    if (before) before();
    WriteStateFiles(keys);
  };
  for (const auto& [kind, key] : keys) {
    const std::string file = FileOf(kind, keys);
    if (!file.empty()) plan->chosen[file] = by + " " + CarrierChoice{kind, key}.Text();
  }
  return {};
}

Properties SetBy(const CarrierChoice& choice, const BootPlan& plan) {
  BootPlan chosen = plan;
  Properties set;
  if (!PutInForce({choice}, &chosen).ok()) return set;
  std::set_difference(chosen.properties.begin(), chosen.properties.end(), plan.properties.begin(),
                      plan.properties.end(), std::inserter(set, set.end()));
  return set;
}

}  // namespace extprop
