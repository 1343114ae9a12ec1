#include "host/extprop/explain/state_file_origins.h"

namespace extprop {

namespace {

constexpr const char* kFirstFile = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_first_file";
constexpr const char* kCurrentFile = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_current_file";
constexpr const char* kConvertFile = "/mnt/vendor/vemrareserve/system/ssv/sim_switch_convert_file";
constexpr const char* kForceConnectFile =
    "/mnt/vendor/vemrareserve/system/ssv/force_connect_internet_prop_file";

}  // namespace

const char* StateFileOrigins::BareKeyProperty(const std::string& path) {
  if (path == kFirstFile) return "sys.sim.switch.first";
  return path == kCurrentFile ? "sys.sim.switch.current" : nullptr;
}

void StateFileOrigins::TakeWrite(const FileEvent& written) {
  const std::string& path = written.path;
  const bool upgraded = BareKeyProperty(path) != nullptr && written.existed;
  if (!upgraded && path != kFirstFile && path != kConvertFile && path != kForceConnectFile) return;
  Setting& source = written_[path] = Setting();
  if (upgraded) return SetPlace(path, 1, &source);
  if (path == kForceConnectFile) {
    source.place = "rule: forced connection";
    return;
  }
  const Origin first = keys_.ConvertedFirstKey();
  source.place = "rule: legacy key conversion";
  source.carrier = "converted in this boot";
  source.inputs = first.inputs;
  const size_t colon = first.place.rfind(':');
  if (path == kFirstFile && colon != std::string::npos) {
    const unsigned long line = std::stoul(first.place.substr(colon + 1));
    SetPlace(first.place.substr(0, colon), static_cast<unsigned>(line), &source);
  }
}

const Setting* StateFileOrigins::WrittenFrom(const std::string& path) const {
  const auto written = written_.find(path);
  return written == written_.end() ? nullptr : &written->second;
}

}  // namespace extprop
