#include <chrono>
#include <filesystem>
#include <thread>

#include "host/extprop/boot/in_tree.h"
#include "host/extprop/boot/recorder.h"
#include "host/extprop/check/unread_files.h"

namespace extprop {

namespace {

// A file that an import names may never end, such as a FIFO.
void EndInTime(std::chrono::seconds limit, Recorder* recorder) {
  std::thread([limit, recorder] {
    std::this_thread::sleep_for(limit);
    EndChild("the check has not ended after " + std::to_string(limit.count()) +
             " s; it waits for " + recorder->WaitsFor());
  }).detach();
}

// The file that the step read last.
std::string SourceIn(const Step& step) {
  std::string source;
  for (const FileEvent* file : Only<FileEvent>(step.events)) {
    if (file->op != FileOp::kRead || file->error != 0) continue;
    source = file->path;
    break;  // what follows are mapping files
  }
  return source;
}

Survey ReadAll(const Properties& properties, CheckContext* context) {
  Survey survey;
  survey.kinds = FindKeyedFiles(context);
  Recorder* recorder = Recorder::Start(properties, context->library);
  EndInTime(context->plan.timeout, recorder);
  recorder->WatchLines();
  recorder->BeginStep({});
  recorder->LoadStored();
  for (const auto& [path, kind] : survey.kinds) {
    android::init::PropertyMap map;
    context->library.load_properties_from_file_without_se(path.c_str(), nullptr, &map);
  }
  recorder->BeginStep({});
  context->library.load_old_nv_key(&survey.nv_key, &survey.nv_target);
  recorder->BeginStep({});
  context->library.read_old_ssv_key(&survey.ssv_key);
  survey.record = recorder->Finish();
  survey.nv_source = context->PathOf(SourceIn(survey.record.steps[1]));
  survey.ssv_source = context->PathOf(SourceIn(survey.record.steps[2]));
  survey.readings = context->ReadingsOf(survey.record);
  return survey;
}

// Reports where files of one directory, each with its imports, end with different values.
void CheckOrder(const Survey& survey, CheckContext* context) {
  using Values = std::map<std::string, std::pair<std::string, Place>>;
  std::map<std::string, Values> files;  // by path
  for (const Reading& reading : survey.readings) {
    const std::string& path = survey.readings[reading.outermost].path;
    const auto kind = survey.kinds.find(path);
    if (kind == survey.kinds.end() || kind->second != FileKind::kKeyedInOrder) continue;
    for (const ReadLine& read : reading.lines) {
      const PropertyLine& line = *read.line;
      if (Sets(line)) files[path][line.name] = {line.value, {reading.path, line.line}};
    }
  }
  std::map<std::pair<std::string, std::string>, const Values::mapped_type*> first;
  for (const auto& [path, values] : files) {
    const std::string directory = std::filesystem::path(path).parent_path();
    for (const auto& [name, value] : values) {
      const auto [earlier, is_new] = first.try_emplace({directory, name}, &value);
      if (is_new || earlier->second->first == value.first) continue;
      context->Report("directory-order", value.second,
                      Quoted(name) + " is " + Quoted(earlier->second->first) +
                          " in another file, and which counts depends on the directory's order",
                      earlier->second->second);
    }
  }
}

Imports ImportsOf(FileKind kind) {
  return kind == FileKind::kOther ? Imports::kUnknown : Imports::kOutermost;
}

}  // namespace

void CheckUnreadFiles(const BootRecord& boot, const std::vector<Reading>& done,
                      CheckContext* context) {
  const Survey survey = ReadAll(boot.properties, context);
  std::set<std::string> done_paths;
  for (const Reading& reading : done) done_paths.insert(reading.path);
  for (const Reading& reading : survey.readings) {
    const auto kind = survey.kinds.find(survey.readings[reading.outermost].path);
    if (kind == survey.kinds.end() || done_paths.count(reading.path) != 0) continue;
    CheckReading(reading, ImportsOf(kind->second), context);
  }
  CheckOrder(survey, context);
  CheckMappings(survey, context);
  CheckLegacyKeys(survey, boot, context);
  CheckReach(survey, done, context);
}

}  // namespace extprop
