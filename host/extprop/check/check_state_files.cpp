#include <android-base/file.h>

#include <algorithm>

#include "host/extprop/check/state_files.h"

namespace extprop {

namespace {

using android::base::EndsWith;
using android::base::StartsWith;

// The upgraded ones, their copies, and the key that is read as it is.
constexpr const char* kUpgradedFiles[] = {"/ssv/sim_switch_first_file",
                                          "/ssv/sim_switch_current_file"};
constexpr const char* kCopies[] = {"/sim_switch/sim_switch_first_file",
                                   "/sim_switch/sim_switch_current_file"};
constexpr const char* kActionFile[] = {"/ssv/sim_action_file"};

// The properties whose values name a carrier's directory.
constexpr const char* kCarrierProperties[] = {"sys.sim.switch.first", "sys.sim.switch.current",
                                              "persist.sys.channel.info"};

template <size_t kCount>
bool IsOneOf(const std::string& path, const char* const (&ends)[kCount]) {
  return std::any_of(ends, ends + kCount, [&path](auto end) { return EndsWith(path, end); });
}

bool IsStateFile(const std::string& path) {
  return path.find("/vemrareserve/system/") != std::string::npos ||
         StartsWith(path, "/data/system/customize/");
}

void CheckCarrier(const Place& at, const std::string& key, CheckContext* context) {
  if (key.empty() || context->carrier_paths.count("properties/" + key) != 0) return;
  context->Report("unknown-carrier", at, "no partition has a directory properties/" + key);
}

void CheckOldFormat(const std::string& path, CheckContext* context) {
  if (IsOneOf(path, kCopies)) {
    context->Report("old-state-file", {path, 1}, "a bare key, which is ignored in this file");
  }
  if (!IsOneOf(path, kUpgradedFiles)) return;
  context->Report("old-state-file", {path, 1},
                  "a bare key, the old format; the next boot rewrites it");
  std::string key;
  android::base::ReadFileToString(path, &key);
  if (CheckBareKey(path, key, context)) CheckCarrier({path, 1}, key, context);
}

}  // namespace

bool IsBareKey(const Reading& reading) {
  if (!IsOneOf(reading.path, kUpgradedFiles) && !IsOneOf(reading.path, kCopies) &&
      !IsOneOf(reading.path, kActionFile)) {
    return false;
  }
  const auto has = [&reading](auto is) {
    return std::any_of(reading.lines.begin(), reading.lines.end(),
                       [is](const ReadingLine& read) { return is(*read.line); });
  };
  return !has(Sets) &&
         has([](const PropertyLine& line) { return line.outcome == LineOutcome::kNoProperty; });
}

bool CheckBareKey(const std::string& path, const std::string& key, CheckContext* context) {
  if (android::base::Trim("x" + key) == "x" + key) return true;
  const bool line_end = EndsWith(key, "\n") || EndsWith(key, "\r");
  context->Report(line_end ? "line-end-in-key" : "trailing-space", {path, 1},
                  std::string(line_end ? "the line end" : "the blank at the end") +
                      " is part of the key " + Quoted(key) + ", so nothing matches it");
  return false;
}

void CheckStateFiles(const std::vector<Reading>& readings, CheckContext* context) {
  for (const Reading& reading : readings) {
    if (!IsStateFile(reading.path)) continue;
    if (IsBareKey(reading)) CheckOldFormat(reading.path, context);
    for (const ReadingLine& read : reading.lines) {
      const PropertyLine& line = *read.line;
      const bool names_carrier =
          std::find(std::begin(kCarrierProperties), std::end(kCarrierProperties), line.name) !=
          std::end(kCarrierProperties);
      if (Sets(line) && names_carrier) CheckCarrier({reading.path, line.line}, line.value, context);
    }
  }
}

}  // namespace extprop
