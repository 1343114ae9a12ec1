#include <algorithm>
#include <filesystem>

#include "host/extprop/check/state_files.h"
#include "host/extprop/check/unread_files.h"

namespace extprop {

namespace {

using android::base::EndsWith;

constexpr size_t kNvKeySize = 8;

const std::string kAnyNvMapping = std::string("/etc/") + kNvMapping;
const std::string kAnyFirstMapping = std::string("/etc/") + kFirstMapping;

// Calls `take` with each line that one of the mapping files of that name has, imports included.
template <typename Take>
void ForEachMapping(const Survey& survey, const std::string& end, Take take) {
  for (const Reading& reading : survey.readings) {
    if (!EndsWith(survey.readings[reading.outermost].path, end)) continue;
    for (const ReadingLine& read : reading.lines) {
      if (Sets(*read.line)) take(Place{reading.path, read.line->line}, *read.line);
    }
  }
}

std::string KeyedFile(const std::string& key) {
  return "etc/build." + key + ".prop";
}

// Returns the key of etc/build.KEY.prop.
std::string KeyOf(const std::string& path) {
  const std::string name = std::filesystem::path(path).stem();
  return name.substr(std::min(name.size(), std::string("build.").size()));
}

// Whether the operator properties can make the key: both parts are lowered and joined.
bool MayBeOperator(const std::string& key) {
  const size_t dash = key.find('-', 1);
  return dash != std::string::npos && dash + 1 < key.size() &&
         std::none_of(key.begin(), key.end(), [](char c) { return c >= 'A' && c <= 'Z'; });
}

}  // namespace

void CheckMappings(const Survey& survey, CheckContext* context) {
  ForEachMapping(survey, kAnyNvMapping, [&](const Place& at, const PropertyLine& line) {
    if (line.name.size() > kNvKeySize) {
      context->Report("long-nv-key", at,
                      Quoted(line.name) + " never matches: an NV key has eight bytes at most");
    }
    if (line.value.empty() || context->carrier_paths.count(KeyedFile(line.value)) != 0) return;
    context->Report("missing-target", at, "no partition has " + KeyedFile(line.value));
  });
  ForEachMapping(survey, kAnyFirstMapping, [&](const Place& at, const PropertyLine& line) {
    if (line.value.empty() || context->carrier_paths.count("properties/" + line.value) != 0) return;
    context->Report("missing-target", at, "no partition has a directory properties/" + line.value);
  });
}

void CheckLegacyKeys(const Survey& survey, const BootRecord& boot, CheckContext* context) {
  struct Candidate {
    std::string key;
    Place at;
  };
  const auto target_of = [context](const std::string& key, const char* mapping) {
    std::string target;
    context->library.find_nv_ssv_target_key(key, mapping, &target);
    return target;
  };
  const auto report = [context](const Candidate& candidate, const char* mapping) {
    context->Report("unmapped-key", candidate.at,
                    "no etc/" + std::string(mapping) + " knows the key " + Quoted(candidate.key));
  };
  const auto boot_carrier = boot.initial.find("ro.boot.vmcarrier");
  const Candidate carrier = {boot_carrier == boot.initial.end() ? "" : boot_carrier->second,
                             {kPropertiesPath}};
  Candidate nv = {survey.nv_key, {survey.nv_source, 1}};
  Candidate ssv = {survey.ssv_key, {survey.ssv_source, 1}};
  if (!CheckBareKey(nv.at.path, nv.key, context)) nv.key.clear();
  // Of a property file the whole text is a key that nothing can match.
  const bool is_bare = ssv.key.find('=') == std::string::npos;
  if (!is_bare || !CheckBareKey(ssv.at.path, ssv.key, context)) ssv.key.clear();
  if (!nv.key.empty() && survey.nv_target.empty()) report(nv, kNvMapping);

  // The first key is derived only where the device keeps none; then one candidate is enough.
  const std::vector<const FileEvent*> files = Only<FileEvent>(boot);
  const bool derived = std::any_of(files.begin(), files.end(), [](const FileEvent* file) {
    return file->op == FileOp::kAccess && EndsWith(file->path, kAnyFirstMapping);
  });
  const Candidate* candidates[] = {&carrier, &nv, &ssv};
  const bool mapped = std::any_of(
      std::begin(candidates), std::end(candidates),
      [&](const Candidate* each) { return !target_of(each->key, kFirstMapping).empty(); });
  if (!derived || mapped) return;
  for (const Candidate* each : candidates) {
    if (!each->key.empty()) report(*each, kFirstMapping);
  }
}

void CheckReach(const Survey& survey, const std::set<std::string>& done, CheckContext* context) {
  std::set<std::string> keys;  // what an NV key is translated to, and what may be an SSV key
  ForEachMapping(survey, kAnyNvMapping,
                 [&](const Place&, const PropertyLine& line) { keys.insert(line.value); });
  ForEachMapping(survey, kAnyFirstMapping,
                 [&](const Place&, const PropertyLine& line) { keys.insert(line.name); });
  for (const auto& [path, kind] : survey.kinds) {
    if (kind != FileKind::kKeyedFile || done.count(path) != 0) continue;
    const std::string key = KeyOf(path);
    if (keys.count(key) != 0 || MayBeOperator(key)) continue;
    context->Report("unreached-file", {path},
                    "no mapping file leads to " + Quoted(key) +
                        ", and no operator properties do; only that very SSV key would");
  }
}

}  // namespace extprop
