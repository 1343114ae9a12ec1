#include "host/extprop/check/check_context.h"

#include <algorithm>
#include <filesystem>

namespace extprop {

namespace {

namespace fs = std::filesystem;

// What the bind mounts of a boot show elsewhere than where it is; the latest first.
class Binds {
 public:
  void Add(const MountEvent& mount) {
    if (mount.error == 0) binds_.insert(binds_.begin(), {mount.target + "/", mount.source + "/"});
  }
  std::string Below(const std::string& path) const {
    for (const auto& [target, source] : binds_) {
      if (const char* rest = After(path, target)) return source + rest;
    }
    return path;
  }

 private:
  std::vector<std::pair<std::string, std::string>> binds_;
};

bool IsRefusal(LineOutcome outcome) {
  return outcome == LineOutcome::kImportRefused || outcome == LineOutcome::kImportNotExpandable;
}

// Goes through a record's events and fills in the readings.
class ReadingsFinder {
 public:
  ReadingsFinder(const BootRecord& record, CheckContext* context)
      : record_(record), context_(*context) {}

  std::vector<Reading> Find() {
    for (const PropertyFile& file : record_.property_files) AddReading(file);
    for (const Step& step : record_.steps) {
      for (const Event& event : step.events) Take(event);
    }
    PlaceUpTo(readings_.size());
    FindImporters();
    return std::move(readings_);
  }

 private:
  void AddReading(const PropertyFile& file) {
    Reading reading;
    reading.error = file.error;
    reading.filter = file.filter;
    reading.outermost =
        file.importer == kNoImporter ? readings_.size() : readings_[file.importer].outermost;
    reading.step = record_.steps.empty() ? nullptr : &record_.steps[file.step];
    readings_.push_back(std::move(reading));
  }

  void Take(const Event& event) {
    if (const auto* mount = std::get_if<MountEvent>(&event.what)) binds_.Add(*mount);
    if (const auto* file = std::get_if<FileEvent>(&event.what)) TakeFile(*file);
    if (const auto* line = std::get_if<PropertyLine>(&event.what)) TakeLine(event, *line);
    if (const auto* log = std::get_if<LogLine>(&event.what)) {
      CheckedLine*& refused = refused_[event.thread];
      if (refused != nullptr) refused->said = log->message;
      refused = nullptr;
    }
  }

  void TakeFile(const FileEvent& file) {
    if (file.op == FileOp::kWrite && file.error == 0) written_.insert(file.path);
    const bool is_next = file.op == FileOp::kRead && placed_ < readings_.size() &&
                         record_.property_files[placed_].path == file.path;
    if (is_next) PlaceUpTo(placed_ + 1);
  }

  void TakeLine(const Event& event, const PropertyLine& line) {
    PlaceUpTo(line.file + 1);
    refused_[event.thread] = nullptr;
    if (written_.count(record_.property_files[line.file].path) != 0) return;
    std::vector<CheckedLine>& lines = readings_[line.file].lines;
    lines.push_back({&line, ""});
    if (IsRefusal(line.outcome)) refused_[event.thread] = &lines.back();
  }

  // Where a file is depends on what is bound when it is opened.
  void PlaceUpTo(size_t end) {
    for (; placed_ < end; ++placed_) {
      readings_[placed_].path = context_.PathOf(binds_.Below(record_.property_files[placed_].path));
    }
  }

  // The n-th file that an importer led to comes from the n-th import that was followed.
  void FindImporters() {
    std::map<size_t, size_t> lines_done;
    for (size_t i = 0; i < readings_.size(); ++i) {
      const size_t importer = record_.property_files[i].importer;
      if (importer == kNoImporter) continue;
      const std::vector<CheckedLine>& lines = readings_[importer].lines;
      size_t& next = lines_done[importer];
      while (next < lines.size() && lines[next].line->outcome != LineOutcome::kImportFollowed) {
        ++next;
      }
      if (next == lines.size()) continue;
      readings_[i].import = {readings_[importer].path, lines[next].line->line};
      ++next;
    }
  }

  const BootRecord& record_;
  CheckContext& context_;
  std::vector<Reading> readings_;
  Binds binds_;
  std::set<std::string> written_;
  size_t placed_ = 0;
  CheckedLine* refused_[2] = {};  // by thread: the line that the next log line is about
};

}  // namespace

CheckContext::CheckContext(const BootPlan& the_plan, const LibraryFunctions& functions)
    : plan(the_plan), library(functions) {
  for (const std::string& root : *library.ExtensionPartitionRoots) AddRoot(root);
}

void CheckContext::Report(const char* id, Place at, const std::string& message, Place other) {
  findings.insert({std::move(at), id, message, std::move(other)});
}

std::string CheckContext::PathOf(const std::string& path) {
  if (path.empty() || path[0] != '/') return path;
  const size_t slash = path.rfind('/');
  const std::string name = path.substr(slash), directory = path.substr(0, slash);
  auto [known, is_new] = directories_.try_emplace(directory, directory);
  if (is_new && !directory.empty()) {
    std::error_code error;
    const std::string resolved = fs::canonical(directory, error);
    if (!error) known->second = resolved == "/" ? "" : resolved;
  }
  return known->second + name;
}

std::vector<Reading> CheckContext::ReadingsOf(const BootRecord& record) {
  return ReadingsFinder(record, this).Find();
}

void CheckContext::AddRoots(const std::vector<Reading>& readings) {
  for (const Reading& reading : readings) {
    if (android::base::EndsWith(reading.path, "/build.prop") && reading.import.path.empty()) {
      AddRoot(fs::path(reading.path).parent_path());
    }
  }
}

void CheckContext::AddRoot(const std::string& directory) {
  const std::string root = fs::path(PathOf(directory + "/build.prop")).parent_path();
  if (std::find(roots.begin(), roots.end(), root) == roots.end()) roots.push_back(root);
}

std::string Quoted(const std::string& text) {
  std::string shown = text;
  for (const auto& [bytes, name] :
       {std::pair("\xef\xbb\xbf", "\\xef\\xbb\\xbf"), std::pair("\xc2\xa0", "\\xc2\\xa0"),
        std::pair("\xe2\x80\x8b", "\\xe2\\x80\\x8b")}) {
    shown = android::base::StringReplace(shown, bytes, name, true);
  }
  return "'" + shown + "'";
}

}  // namespace extprop
