#include "host/extprop/check/readings.h"

#include <map>
#include <set>
#include <utility>

namespace extprop {

namespace {

bool IsRefusal(LineOutcome outcome) {
  return outcome == LineOutcome::kImportRefused || outcome == LineOutcome::kImportNotExpandable;
}

// Goes through a record's events and fills in the readings.
class ReadingsFinder {
 public:
  explicit ReadingsFinder(const BootRecord& record) : record_(record) {}

  std::vector<Reading> Find() {
    for (const PropertyFile& file : record_.property_files) AddReading(file);
    for (const Step& step : record_.steps) {
      for (const Event& event : step.events) Take(event);
    }
    FindImporters();
    return std::move(readings_);
  }

 private:
  void AddReading(const PropertyFile& file) {
    Reading reading;
    reading.path = file.device_path;
    reading.error = file.error;
    reading.filter = file.filter;
    reading.outermost =
        file.importer == kNoImporter ? readings_.size() : readings_[file.importer].outermost;
    reading.step = record_.steps.empty() ? nullptr : &record_.steps[file.step];
    readings_.push_back(std::move(reading));
  }

  void Take(const Event& event) {
    if (const auto* file = std::get_if<FileEvent>(&event.what)) TakeFile(*file);
    if (const auto* line = std::get_if<PropertyLine>(&event.what)) TakeLine(event, *line);
    if (const auto* log = std::get_if<LogLine>(&event.what)) {
      ReadingLine*& refused = refused_[event.thread];
      if (refused != nullptr) refused->said = log->message;
      refused = nullptr;
    }
  }

  void TakeFile(const FileEvent& file) {
    if (file.op == FileOp::kWrite && file.error == 0) written_.insert(file.path);
  }

  void TakeLine(const Event& event, const PropertyLine& line) {
    refused_[event.thread] = nullptr;
    if (written_.count(record_.property_files[line.file].path) != 0) return;
    std::vector<ReadingLine>& lines = readings_[line.file].lines;
    lines.push_back({&line, ""});
    if (IsRefusal(line.outcome)) refused_[event.thread] = &lines.back();
  }

  // The n-th file that an importer led to comes from the n-th import that was followed.
  void FindImporters() {
    std::map<size_t, size_t> lines_done;
    for (size_t i = 0; i < readings_.size(); ++i) {
      const size_t importer = record_.property_files[i].importer;
      if (importer == kNoImporter) continue;
      const std::vector<ReadingLine>& lines = readings_[importer].lines;
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
  std::vector<Reading> readings_;
  std::set<std::string> written_;
  ReadingLine* refused_[2] = {};  // by thread: the line that the next log line is about
};

}  // namespace

std::vector<Reading> ReadingsOf(const BootRecord& record) {
  return ReadingsFinder(record).Find();
}

}  // namespace extprop
