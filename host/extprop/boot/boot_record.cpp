#include "host/extprop/boot/boot_record.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

namespace extprop {

using nlohmann::json;

NLOHMANN_JSON_SERIALIZE_ENUM(Severity, {{Severity::kVerbose, "verbose"},
                                        {Severity::kDebug, "debug"},
                                        {Severity::kInfo, "info"},
                                        {Severity::kWarning, "warning"},
                                        {Severity::kError, "error"},
                                        {Severity::kFatal, "fatal"}})
NLOHMANN_JSON_SERIALIZE_ENUM(FileOp, {{FileOp::kRead, "read"},
                                      {FileOp::kWrite, "write"},
                                      {FileOp::kMkdir, "mkdir"},
                                      {FileOp::kUnlink, "unlink"},
                                      {FileOp::kChown, "chown"},
                                      {FileOp::kAccess, "access"},
                                      {FileOp::kList, "list"}})
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Entry, name, value, old)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(HandOver, mode, entries)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(LogLine, severity, message, file, line)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FileState, type, size, mode, uid, gid)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FileEvent, op, path, error, existed, after)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(MountEvent, source, target, flags, error)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PropertySet, name, value, old, refused)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PropertyLine, path, line, name, value, filtered)

namespace {

// The names of the variant's alternatives, in its order.
constexpr const char* kEventNames[] = {"hand_over", "log", "file", "mount", "property_set", "line"};

template <size_t kIndex = 0>
void ReadEvent(const std::string& name, const json& from, Event* event) {
  using What = decltype(event->what);
  if constexpr (kIndex == std::variant_size_v<What>) {
    throw std::invalid_argument("unknown event " + name);
  } else if (name == kEventNames[kIndex]) {
    event->what = from.get<std::variant_alternative_t<kIndex, What>>();
  } else {
    ReadEvent<kIndex + 1>(name, from, event);
  }
}

}  // namespace

static void to_json(json& to, const Event& event) {
  std::visit([&to](const auto& what) { to = what; }, event.what);
  to["event"] = kEventNames[event.what.index()];
  to["thread"] = event.thread;
}

static void from_json(const json& from, Event& event) {
  from.at("thread").get_to(event.thread);
  ReadEvent(from.at("event").get<std::string>(), from, &event);
}

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Step, post, name, argument, error, events)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FileChange, change, path, after)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(BootRecord, initial, steps, properties, files)

json ToJson(const BootRecord& record) {
  return record;
}

BootRecord FromJson(const json& from) {
  return from.get<BootRecord>();
}

std::string JsonText(const json& from) {
  return from.dump(2, ' ', false, json::error_handler_t::replace);
}

}  // namespace extprop
