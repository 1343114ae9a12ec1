#include "host/extprop/boot/boot_record.h"

#include <nlohmann/json.hpp>
#include <type_traits>

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

namespace {

// The names of the variant's alternatives, in its order.
constexpr const char* kEventNames[] = {"hand_over", "log", "file", "mount", "property_set", "line"};

const char* OutcomeName(LineOutcome outcome) {
  constexpr const char* kNames[] = {"blank",    "no_property",   "filtered", "set",
                                    "replaced", "same_again",    "followed", "missing",
                                    "refused",  "not_expandable"};
  return kNames[static_cast<size_t>(outcome)];
}

template <typename T>
json Value(const T& value);

template <typename T>
json Fields(const T& value) {
  json object = json::object();
  std::apply(
      [&](const auto&... field) { ((object[field.first] = Value(value.*field.second)), ...); },
      FieldsOf(&value));
  return object;
}

template <typename T>
json List(const std::vector<T>& items) {
  json list = json::array();
  for (const T& item : items) list.push_back(Value(item));
  return list;
}

json EventValue(const Event& event) {
  json object = std::visit([](const auto& what) { return Fields(what); }, event.what);
  object["event"] = kEventNames[event.what.index()];
  object["thread"] = event.thread;
  return object;
}

template <typename T>
struct IsVector : std::false_type {};
template <typename T>
struct IsVector<std::vector<T>> : std::true_type {};

template <typename T>
json Value(const T& value) {
  if constexpr (std::is_same_v<T, Event>) {
    return EventValue(value);
  } else if constexpr (std::is_same_v<T, LineOutcome>) {
    return OutcomeName(value);
  } else if constexpr (IsVector<T>::value) {
    return List(value);
  } else if constexpr (std::is_class_v<T> && !std::is_same_v<T, std::string> &&
                       !std::is_same_v<T, Properties>) {
    return Fields(value);
  } else if constexpr (std::is_same_v<T, std::size_t>) {
    return value == kNoImporter ? json() : json(value);
  } else {
    return value;
  }
}

}  // namespace

json ToJson(const BootRecord& record) {
  return Value(record);
}

std::string JsonText(const json& from) {
  return from.dump(2, ' ', false, json::error_handler_t::replace);
}

const PropertyFile& OutermostFile(const BootRecord& record, std::size_t file) {
  while (record.property_files[file].importer != kNoImporter) {
    file = record.property_files[file].importer;
  }
  return record.property_files[file];
}

}  // namespace extprop
