#include <chrono>
#include <filesystem>
#include <thread>

#include "host/extprop/boot/in_tree.h"
#include "host/extprop/boot/recorder.h"
#include "host/extprop/check/unread_files.h"

namespace extprop {

namespace {

// A file that an import names may never end, such as a FIFO.
void EndWhereItHangs(std::chrono::seconds limit, Recorder* recorder) {
  std::thread([limit, recorder] {
    std::string file;
    while (file.empty()) {
      std::this_thread::sleep_for(limit);
      file = recorder->WaitsFor();
    }
    EndChild("the check has not ended after " + std::to_string(limit.count()) +
             " s; it waits for " + file);
  }).detach();
}

// The file that the step read first, and could.
std::string SourceIn(const Step& step) {
  for (const FileEvent* file : Only<FileEvent>(step.events)) {
    if (file->op == FileOp::kRead && file->error == 0) return file->path;
  }
  return "";
}

// Reports where files of one directory, each with its imports, end with different values.
void CheckOrder(const Survey& survey, CheckContext* context) {
  using Values = std::map<std::string, std::pair<std::string, Place>>;
  std::map<std::string, Values> files;  // by path
  for (const Reading& reading : survey.readings) {
    const std::string& path = survey.readings[reading.outermost].path;
    const auto kind = survey.kinds.find(path);
    if (kind == survey.kinds.end() || kind->second != FileKind::kKeyedInOrder) continue;
    for (const ReadingLine& read : reading.lines) {
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

UnreadFiles::UnreadFiles(CheckContext* context)
    : context_(*context), recorder_(Recorder::Start(context->plan.properties, context->library)) {
  EndWhereItHangs(context_.plan.timeout, recorder_);
  recorder_->WatchLines();
  recorder_->BeginStep({});
  context_.library.load_old_nv_key(&survey_.nv_key, &survey_.nv_target);
  recorder_->BeginStep({});
  context_.library.read_old_ssv_key(&survey_.ssv_key);
  recorder_->BeginStep({});
  recorder_->LoadStored();
  ReadFurther();
}

void UnreadFiles::ReadFurther() {
  const std::vector<std::string> roots(context_.roots.begin() + roots_done_, context_.roots.end());
  roots_done_ = context_.roots.end() - context_.roots.begin();
  for (const auto& [path, kind] : FindKeyedFiles(roots, &context_)) {
    if (survey_.kinds.emplace(path, kind).second && kind != FileKind::kOther) Read(path);
  }
}

void UnreadFiles::Read(const std::string& path) {
  android::init::PropertyMap map;
  context_.library.load_properties_from_file_without_se(path.c_str(), nullptr, &map);
}

void UnreadFiles::Check(const BootRecord& boot, const std::vector<Reading>& done) {
  std::set<std::string> done_paths;
  for (const Reading& reading : done) done_paths.insert(reading.path);
  for (const auto& [path, kind] : survey_.kinds) {
    if (kind == FileKind::kOther && done_paths.count(path) == 0) Read(path);
  }
  const BootRecord record = recorder_->Finish();
  survey_.readings = ReadingsOf(record);
  survey_.nv_source = context_.PathOf(SourceIn(record.steps[0]));
  survey_.ssv_source = context_.PathOf(SourceIn(record.steps[1]));
  for (const Reading& reading : survey_.readings) {
    const auto kind = survey_.kinds.find(survey_.readings[reading.outermost].path);
    if (kind == survey_.kinds.end() || done_paths.count(reading.path) != 0) continue;
    CheckReading(reading, ImportsOf(kind->second), &context_);
  }
  CheckOrder(survey_, &context_);
  CheckMappings(survey_, &context_);
  if (!context_.plan.prepare) CheckLegacyKeys(survey_, boot, &context_);
  CheckReach(survey_, done_paths, &context_);
}

}  // namespace extprop
