#include "host/extprop/boot/boot_record.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace android::init {

NLOHMANN_JSON_SERIALIZE_ENUM(PropertyLineOutcome,
                             {{PropertyLineOutcome::kBlank, "blank"},
                              {PropertyLineOutcome::kNoProperty, "no_property"},
                              {PropertyLineOutcome::kFiltered, "filtered"},
                              {PropertyLineOutcome::kSet, "set"},
                              {PropertyLineOutcome::kReplaced, "replaced"},
                              {PropertyLineOutcome::kSameAgain, "same_again"},
                              {PropertyLineOutcome::kImportFollowed, "followed"},
                              {PropertyLineOutcome::kImportMissing, "missing"},
                              {PropertyLineOutcome::kImportRefused, "refused"},
                              {PropertyLineOutcome::kImportNotExpandable, "not_expandable"}})

}  // namespace android::init

namespace extprop {

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

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Entry, name, value, old, refused)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(HandOver, mode, entries)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(LogLine, severity, message, file, line)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FileState, type, size, mode, uid, gid)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FileEvent, op, path, device_path, error, existed, content, after)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(MountEvent, source, target, flags, error)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PropertySet, name, value, old, refused)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PropertyLine, file, line, outcome, name, value, text, said)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FileChange, change, path, after)

// NOLINTNEXTLINE(readability-identifier-naming): the name is the JSON library's
void to_json(json& object, const Event& event) {
  // The names of the variant's alternatives, in its order.
  constexpr const char* kNames[] = {"hand_over", "log", "file", "mount", "property_set", "line"};
  object = std::visit([](const auto& what) { return json(what); }, event.what);
  object["event"] = kNames[event.what.index()];
  object["thread"] = event.thread;
}

// NOLINTNEXTLINE(readability-identifier-naming)
void to_json(json& object, const Step& step) {
  object = {{"post", step.post},
            {"name", step.name},
            {"argument", step.argument},
            {"error", step.error},
            {"events", step.events}};
}

// NOLINTNEXTLINE(readability-identifier-naming)
void to_json(json& object, const PropertyFile& file) {
  const bool outermost = file.importer == kNoImporter;
  object = {{"path", file.path},     {"device_path", file.device_path},
            {"filter", file.filter}, {"error", file.error},
            {"step", file.step},     {"importer", outermost ? json() : json(file.importer)},
            {"map", file.map},       {"import_line", file.import_line}};
}

json ToJson(const BootRecord& record) {
  return {{"chosen", record.chosen},
          {"initial", record.initial},
          {"refused", record.refused},
          {"steps", record.steps},
          {"property_files", record.property_files},
          {"properties", record.properties},
          {"files", record.files}};
}

std::size_t OutermostFile(const BootRecord& record, std::size_t file) {
  while (record.property_files[file].importer != kNoImporter) {
    file = record.property_files[file].importer;
  }
  return file;
}

const Entry* FindEntry(const HandOver& hand_over, std::string_view name) {
  const auto& entries = hand_over.entries;  // in the order of a map
  const auto entry = std::lower_bound(
      entries.begin(), entries.end(), name,
      [](const Entry& each, std::string_view wanted) { return each.name < wanted; });
  return entry == entries.end() || entry->name != name ? nullptr : &*entry;
}

std::string WhyUnread(int error) {
  if (error == ELOOP) return "it is a symbolic link, and links to such files are not followed";
  if (error == ENXIO) return "no file: a boot that reads it may wait for ever";
  return std::string("it cannot be read: ") + strerror(error);
}

std::map<std::string, std::string> Unreadable(const BootRecord& record, bool with_links) {
  std::map<std::string, std::string> unreadable;
  for (const FileEvent* file : Only<FileEvent>(record)) {
    const bool opens = file->op == FileOp::kRead && file->error != 0 && file->error != ENOENT;
    const bool reaches = file->op != FileOp::kWrite && file->error == EACCES;
    if ((!opens && !reaches) || (file->error == ELOOP && !with_links)) continue;
    unreadable.emplace(file->path, WhyUnread(file->error));
  }
  return unreadable;
}

bool Sets(const PropertyLine& line) {
  return line.outcome == LineOutcome::kSet || line.outcome == LineOutcome::kReplaced ||
         line.outcome == LineOutcome::kSameAgain;
}

std::string TitleOf(const Step& step) {
  return (step.post ? "post " : "") + step.name +
         (step.argument.empty() ? "" : "=" + step.argument);
}

std::string ErrorOf(const BootRecord& record) {
  for (const Step& step : record.steps) {
    if (!step.error.empty()) return TitleOf(step) + ": " + step.error;
  }
  return "";
}

}  // namespace extprop
