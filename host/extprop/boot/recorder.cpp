#include "host/extprop/boot/recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <android-base/strings.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "host/extprop/vocabulary.h"
#include "host/platform/system_properties.h"

namespace extprop {

namespace {

Recorder* the_recorder = nullptr;

// A property file that this thread is inside of.
struct OpenFile {
  size_t place;       // in the record
  unsigned line = 0;  // that was read last
};
thread_local std::vector<OpenFile> inside;

// The step and, in it, the event of an import that was not followed, if the library's next log line
// is about one.
thread_local std::optional<std::pair<size_t, size_t>> refused_import;

const std::map<watch::Call, FileOp> kFileOps = {{watch::Call::kMkdir, FileOp::kMkdir},
                                                {watch::Call::kUnlink, FileOp::kUnlink},
                                                {watch::Call::kLchown, FileOp::kChown},
                                                {watch::Call::kAccess, FileOp::kAccess},
                                                {watch::Call::kOpendir, FileOp::kList}};

// What Before saw, for the After of the same call.
thread_local bool existed_before = false;
thread_local std::string value_before;

// Both count up from verbose; libbase has two fatal ones.
Severity SeverityOf(android::base::LogSeverity severity) {
  return static_cast<Severity>(std::min<int>(severity, android::base::FATAL_WITHOUT_ABORT));
}

bool ForWriting(const watch::PlatformCall& call) {
  return call.call == watch::Call::kOpen && (call.flags & O_ACCMODE) != O_RDONLY;
}

bool Changes(const watch::PlatformCall& call) {
  return ForWriting(call) || call.call == watch::Call::kMkdir ||
         call.call == watch::Call::kUnlink || call.call == watch::Call::kLchown;
}

// The parser tells how long it took, which no two boots agree in.
std::string WithoutTime(const std::string& message) {
  constexpr const char* kBefore = " took ";
  const size_t time = message.rfind(kBefore);
  const size_t unit = message.find("ms.)", time);
  const bool tells = android::base::StartsWith(message, "(Loading properties from ");
  if (!tells || time == std::string::npos || unit == std::string::npos) return message;
  return message.substr(0, time + strlen(kBefore)) + "…" + message.substr(unit);
}

// Leaves the place where the library reads next alone. Nothing of what has no places, as a pipe.
std::string FirstBytes(int fd) {
  std::string bytes(4096, '\0');
  const ssize_t count = pread(fd, bytes.data(), bytes.size(), 0);
  bytes.resize(count < 0 ? 0 : static_cast<size_t>(count));
  return bytes;
}

// Without a system call for every event. 0: not asked for yet.
thread_local pid_t this_thread = 0;
pid_t ThisThread() {
  if (this_thread == 0) this_thread = gettid();
  return this_thread;
}

}  // namespace

Recorder::Recorder(const BootPlan& plan, const Library& library)
    : host_thread_(ThisThread()),
      opens_fifos_(plan.opens_fifos),
      keep_line_(plan.keep_line),
      library_(library) {}

Recorder* Recorder::Start(const BootPlan& plan, const Library& library) {
  auto* recorder = the_recorder = new Recorder(plan, library);
  recorder->record_.chosen = plan.chosen;
  device::ClearProperties();
  for (const auto& [name, value] : plan.properties) {
    const std::string refused = recorder->Refusal(name, value);
    if (!refused.empty()) {
      recorder->record_.refused.push_back({name, value, "", refused});
      continue;
    }
    recorder->record_.initial.emplace(name, value);
    if (android::base::StartsWith(name, kStoredPrefix)) {
      recorder->stored_.emplace(name, value);
    } else {
      device::ApplyProperty(name, value);
    }
  }
  android::base::SetMinimumLogSeverity(android::base::VERBOSE);
  android::base::SetLogger([](android::base::LogId, android::base::LogSeverity severity,
                              const char* /*tag*/, const char* file, unsigned line,
                              const char* message) {
    if (severity >= android::base::FATAL_WITHOUT_ABORT) fprintf(stderr, "extprop: %s\n", message);
    the_recorder->Log(
        {SeverityOf(severity), WithoutTime(message), file == nullptr ? "" : file, line});
  });
  watch::SetObserver(recorder);
  if (plan.lines) library.KSSI_OBSERVE_PropertyFiles(recorder);
  return recorder;
}

void Recorder::LoadStored() {
  if (record_.steps.empty()) return;
  if (!std::exchange(stored_loaded_, true) && !stored_.empty()) {
    Receive(kStoredProperties, android::init::PropertyMap(stored_));
  }
}

void Recorder::OnHandOver(int mode, android::init::PropertyMap map) {
  the_recorder->Receive(mode, std::move(map));
}

void Recorder::BeginStep(Step step) {
  std::lock_guard<std::mutex> guard(lock_);
  CloseStep();
  record_.steps.push_back(std::move(step));
  // As many lines as a device's partitions may have; room that is not used costs nothing.
  record_.steps.back().events.reserve(8192);
}

void Recorder::FailStep(const std::string& error) {
  std::lock_guard<std::mutex> guard(lock_);
  record_.steps.back().error = error;
}

pid_t Recorder::bind_thread() {
  std::lock_guard<std::mutex> guard(lock_);
  return bind_thread_;
}

size_t Recorder::requests_served() {
  std::lock_guard<std::mutex> guard(lock_);
  return requests_served_;
}

std::string Recorder::WaitsFor() {
  std::lock_guard<std::mutex> guard(lock_);
  if (under_way_.empty()) return "";
  const watch::PlatformCall& call = under_way_.begin()->second;
  std::string path = call.path;
  if (path.empty()) android::base::Readlink("/proc/self/fd/" + std::to_string(call.fd), &path);
  return path;
}

BootRecord Recorder::Finish() {
  std::lock_guard<std::mutex> guard(lock_);
  finished_ = true;
  CloseStep();
  record_.files = changed_files_.Find();
  for (auto& [name, value] : device::AllProperties()) {
    if (value.empty()) continue;
    record_.properties.emplace_hint(record_.properties.end(), name, std::move(value));
  }
  return std::move(record_);
}

watch::Verdict Recorder::Before(const watch::PlatformCall& call) {
  if (call.call == watch::Call::kOpen || call.call == watch::Call::kRead) {
    std::lock_guard<std::mutex> guard(lock_);
    under_way_[ThisThread()] = call;
  }
  if (call.call == watch::Call::kPropertySet) value_before = device::PropertyValue(call.path);
  if (Changes(call)) {
    std::lock_guard<std::mutex> guard(lock_);
    existed_before = changed_files_.Touch(PathOf(call));
  }
  std::error_code ignored;
  watch::Verdict verdict;
  verdict.as_root = call.call == watch::Call::kLchown;
  verdict.error = ENXIO;
  verdict.fail = !opens_fifos_ && call.call == watch::Call::kOpen &&
                 std::filesystem::is_fifo(call.path, ignored);
  return verdict;
}

void Recorder::After(const watch::PlatformCall& call, long result, int error) {
  std::lock_guard<std::mutex> guard(lock_);
  under_way_.erase(ThisThread());
  if (finished_ || record_.steps.empty()) return;
  const bool failed = call.call == watch::Call::kPropertySet ? result != 0 : result < 0;
  if (call.call == watch::Call::kLchown && !failed && error != 0) {
    changed_files_.SetOwner(PathOf(call), call.owner, call.group);
  }
  if (call.call == watch::Call::kUnlink && !failed) changed_files_.Forget(PathOf(call));
  if (!failed) error = 0;
  switch (call.call) {
    case watch::Call::kOpen: {
      const bool writes = ForWriting(call);
      AddFile(writes ? FileOp::kWrite : FileOp::kRead, call, error);
      if (!writes && !failed && inside.empty()) {
        std::get<FileEvent>(record_.steps.back().events.back().what).content =
            FirstBytes(static_cast<int>(result));
      }
      return;
    }
    case watch::Call::kMount:
      if (!failed) path_origins_.AddMount(call.source, call.path);
      return Add(MountEvent{call.source, call.path, call.flags, error});
    case watch::Call::kPropertySet:
      Add(PropertySet{call.path, call.source, value_before, failed});
      if (ThisThread() != host_thread_ && call.path == kRequestProperty) ++requests_served_;
      return;
    default:
      if (auto op = kFileOps.find(call.call); op != kFileOps.end())
        AddFile(op->second, call, error);
  }
}

void Recorder::Add(decltype(Event::what) what) {
  const pid_t thread = ThisThread();
  if (thread != host_thread_) bind_thread_ = thread;
  record_.steps.back().events.push_back({thread != host_thread_, std::move(what)});
}

void Recorder::AddFile(FileOp op, const watch::PlatformCall& call, int error) {
  FileEvent event;
  event.op = op;
  event.path = call.path;
  if (Changes(call)) {
    event.device_path = PathOf(call);
    event.existed = existed_before;
  }
  event.error = error;
  Add(event);
}

void Recorder::Log(LogLine line) {
  std::lock_guard<std::mutex> guard(lock_);
  if (finished_ || record_.steps.empty()) return;
  if (refused_import.has_value()) {
    const auto [step, event] = *std::exchange(refused_import, std::nullopt);
    std::get<PropertyLine>(record_.steps[step].events[event].what).said = line.message;
  }
  Add(std::move(line));
}

void Recorder::Receive(int mode, android::init::PropertyMap&& map) {
  std::lock_guard<std::mutex> guard(lock_);
  if (finished_) return;
  HandOver hand_over;
  hand_over.mode = mode;
  hand_over.entries.reserve(map.size());
  for (auto& [name, value] : map) {
    Entry entry = {name, std::move(value), device::PropertyValue(name), ""};
    entry.refused = Refusal(entry.name, entry.value);
    const bool keeps_stored = mode == kFilledMap && stored_loaded_ && stored_.count(name) != 0;
    if (entry.refused.empty() && keeps_stored) entry.refused = "the stored value is kept";
    if (entry.refused.empty()) device::ApplyProperty(name, entry.value);
    hand_over.entries.push_back(std::move(entry));
  }
  Add(std::move(hand_over));
}

// Why init would not set the property, by the library's checks; empty where it would.
std::string Recorder::Refusal(const std::string& name, const std::string& value) const {
  if (library_.IsLegalPropertyName == nullptr || library_.IsLegalPropertyValue == nullptr)
    return "";
  if (!library_.IsLegalPropertyName(name)) return "not a legal property name";
  Result<void> legal = library_.IsLegalPropertyValue(name, value);
  return legal.ok() ? "" : legal.error().message();
}

void Recorder::EnterFile(std::string_view path, std::string_view filter,
                         const android::init::PropertyMap* properties) {
  std::lock_guard<std::mutex> guard(lock_);
  if (finished_) return inside.push_back({kNoImporter});
  PropertyFile file;
  file.path = path;
  file.device_path = path_origins_.Find(file.path);
  file.filter = filter;
  file.step = record_.steps.empty() ? 0 : record_.steps.size() - 1;
  if (inside.empty()) {
    file.map = NumberOf(properties);
  } else {
    file.importer = inside.back().place;
    file.import_line = inside.back().line;
    file.map = record_.property_files[file.importer].map;
  }
  inside.push_back({record_.property_files.size()});
  record_.property_files.push_back(std::move(file));
}

// A map that holds nothing yet is a new one, even where an earlier one stood.
size_t Recorder::NumberOf(const android::init::PropertyMap* map) {
  size_t& number = maps_[map];
  if (number == 0 || map->empty()) number = ++map_count_;
  return number;
}

void Recorder::LeaveFile(std::string_view error) {
  std::lock_guard<std::mutex> guard(lock_);
  if (!finished_ && inside.back().place != kNoImporter) {
    record_.property_files[inside.back().place].error = error;
  }
  inside.pop_back();
  refused_import.reset();
}

void Recorder::ReadLine(const android::init::PropertyLine& line) {
  inside.back().line = static_cast<unsigned>(line.number);
  refused_import.reset();
  // One that begins with a NUL byte is blank for the library, but not for who wrote it.
  const bool hides = line.text.find('\0') != std::string_view::npos;
  if (line.outcome == LineOutcome::kBlank && !hides) return;
  std::string name(line.name);
  if (keep_line_ && !keep_line_(name)) return;
  std::lock_guard<std::mutex> guard(lock_);
  const auto [file, number] = inside.back();
  if (finished_ || file == kNoImporter || record_.steps.empty()) return;
  PropertyLine recorded = {file, number, line.outcome, std::move(name), std::string(line.value),
                           "",   ""};
  const bool is_plain = (Sets(recorded) || line.outcome == LineOutcome::kFiltered) &&
                        line.text.size() == line.name.size() + 1 + line.value.size();
  if (!is_plain) recorded.text = line.text;
  const bool refused = line.outcome == LineOutcome::kImportRefused ||
                       line.outcome == LineOutcome::kImportNotExpandable;
  if (refused) refused_import = {record_.steps.size() - 1, record_.steps.back().events.size()};
  Add(std::move(recorded));
}

// Owner and mode are set after the content is, so the state is looked at when the step is over.
void Recorder::CloseStep() {
  if (record_.steps.empty()) return;
  for (Event& event : record_.steps.back().events) {
    auto* file = std::get_if<FileEvent>(&event.what);
    if (file == nullptr) continue;
    if (file->op == FileOp::kWrite || file->op == FileOp::kMkdir || file->op == FileOp::kChown) {
      file->after = changed_files_.StateOf(file->device_path);
    }
  }
}

// One path for one file. The calls that change something follow no link at the path's end.
std::string Recorder::PathOf(const watch::PlatformCall& call) {
  return path_origins_.Find(call.path);
}

}  // namespace extprop
