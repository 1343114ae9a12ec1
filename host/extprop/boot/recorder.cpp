#include "host/extprop/boot/recorder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/logging.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "host/platform/system_properties.h"

namespace extprop {

namespace {

Recorder* the_recorder = nullptr;

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

FileState StateOf(const std::string& path) {
  FileState state;
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return state;
  state.type = S_ISREG(status.st_mode) ? "file" : S_ISDIR(status.st_mode) ? "directory" : "other";
  if (S_ISREG(status.st_mode)) state.size = status.st_size;
  state.mode = status.st_mode & 07777;
  state.uid = status.st_uid;
  state.gid = status.st_gid;
  return state;
}

bool Same(const FileState& one, const FileState& other) {
  return one.type == other.type && one.mode == other.mode && one.uid == other.uid &&
         one.gid == other.gid;
}

}  // namespace

Recorder::Recorder() : host_thread_(gettid()) {}

Recorder* Recorder::Start(const Properties& initial) {
  auto* recorder = the_recorder = new Recorder;
  recorder->record_.initial = initial;
  device::ClearProperties();
  for (const auto& [name, value] : initial) device::ApplyProperty(name, value);
  android::base::SetMinimumLogSeverity(android::base::VERBOSE);
  android::base::SetLogger([](android::base::LogId, android::base::LogSeverity severity,
                              const char* /*tag*/, const char* file, unsigned line,
                              const char* message) {
    if (severity >= android::base::FATAL_WITHOUT_ABORT) fprintf(stderr, "extprop: %s\n", message);
    the_recorder->Log({SeverityOf(severity), message, file == nullptr ? "" : file, line});
  });
  watch::SetObserver(recorder);
  return recorder;
}

void Recorder::Attribute(android::init::IInitExtensionProperty* service) {
  finder_ = std::make_unique<LineFinder>(service);
}

void Recorder::OnHandOver(int mode, android::init::PropertyMap map) {
  the_recorder->Receive(mode, std::move(map));
}

void Recorder::BeginStep(Step step) {
  std::vector<PropertyLine> lines = FindLines();
  std::lock_guard<std::mutex> guard(lock_);
  CloseStep(std::move(lines));
  record_.steps.push_back(std::move(step));
}

void Recorder::FailStep(const std::string& error) {
  std::lock_guard<std::mutex> guard(lock_);
  record_.steps.back().error = error;
}

Step Recorder::TakeStep() {
  std::vector<PropertyLine> lines = FindLines();
  std::lock_guard<std::mutex> guard(lock_);
  CloseStep(std::move(lines));
  Step step = std::move(record_.steps.back());
  record_.steps.pop_back();
  return step;
}

pid_t Recorder::bind_thread() {
  std::lock_guard<std::mutex> guard(lock_);
  return bind_thread_;
}

size_t Recorder::requests_served() {
  std::lock_guard<std::mutex> guard(lock_);
  return requests_served_;
}

BootRecord Recorder::Finish() {
  std::vector<PropertyLine> lines = FindLines();
  std::lock_guard<std::mutex> guard(lock_);
  finished_ = true;
  CloseStep(std::move(lines));
  FindChanges();
  for (auto& [name, value] : device::AllProperties()) {
    if (!value.empty()) record_.properties.emplace(name, value);
  }
  return std::move(record_);
}

watch::Verdict Recorder::Before(const watch::PlatformCall& call) {
  if (LineFinder::IsTrying()) return {};
  if (call.call == watch::Call::kPropertySet) value_before = device::PropertyValue(call.path);
  if (Changes(call)) {
    std::lock_guard<std::mutex> guard(lock_);
    existed_before = !StateOf(call.path).type.empty();
    if (touched_.count(call.path) == 0) touched_[call.path] = Look(call.path);
  }
  return {};
}

void Recorder::After(const watch::PlatformCall& call, long result, int error) {
  if (LineFinder::IsTrying()) {
    if (call.call == watch::Call::kOpen && result >= 0) LineFinder::OnOpen(call.path);
    return;
  }
  std::lock_guard<std::mutex> guard(lock_);
  if (finished_ || record_.steps.empty()) return;
  const bool failed = call.call == watch::Call::kPropertySet ? result != 0 : result < 0;
  if (!failed) error = 0;
  if (finder_ != nullptr) TrackRead(call, result);
  switch (call.call) {
    case watch::Call::kOpen:
      return AddFile(ForWriting(call) ? FileOp::kWrite : FileOp::kRead, call, error);
    case watch::Call::kMount:
      return Add(MountEvent{call.source, call.path, call.flags, error});
    case watch::Call::kPropertySet:
      Add(PropertySet{call.path, call.source, value_before, failed});
      if (gettid() != host_thread_ && call.path == kRequestProperty) ++requests_served_;
      return;
    default:
      if (auto op = kFileOps.find(call.call); op != kFileOps.end())
        AddFile(op->second, call, error);
  }
}

void Recorder::Add(decltype(Event::what) what) {
  const pid_t thread = gettid();
  if (thread != host_thread_) bind_thread_ = thread;
  record_.steps.back().events.push_back({thread != host_thread_, std::move(what)});
}

void Recorder::AddFile(FileOp op, const watch::PlatformCall& call, int error) {
  FileEvent event;
  event.op = op;
  event.path = call.path;
  event.error = error;
  event.existed = Changes(call) && existed_before;
  Add(event);
}

void Recorder::Log(LogLine line) {
  if (LineFinder::IsTrying()) return;
  std::lock_guard<std::mutex> guard(lock_);
  if (!finished_ && !record_.steps.empty()) Add(std::move(line));
}

void Recorder::Receive(int mode, android::init::PropertyMap&& map) {
  // While the properties are those that the imports' paths were expanded with.
  std::vector<PropertyLine> lines = FindLines();
  std::lock_guard<std::mutex> guard(lock_);
  if (finished_) return;
  AddLines(std::move(lines));
  HandOver hand_over;
  hand_over.mode = mode;
  for (auto& [name, value] : map) {
    AddWholeContent(name, value);
    std::string old = device::PropertyValue(name);
    device::ApplyProperty(name, value);
    hand_over.entries.push_back({name, std::move(value), std::move(old)});
  }
  Add(std::move(hand_over));
}

// Keeps what the library reads, as far as it reads it: some sources are whole block devices.
void Recorder::TrackRead(const watch::PlatformCall& call, long result) {
  if (call.call == watch::Call::kOpen && result >= 0 && !ForWriting(call)) {
    reads_.push_back({call.path, static_cast<int>(result), ""});
  }
  if (call.call != watch::Call::kRead || result <= 0) return;
  const auto read = std::find_if(reads_.rbegin(), reads_.rend(),
                                 [&](const FileRead& file) { return file.fd == call.fd; });
  const off_t end = lseek(call.fd, 0, SEEK_CUR);
  if (read == reads_.rend() || end < result) return;
  std::string bytes(static_cast<size_t>(result), '\0');
  const ssize_t got = pread(call.fd, bytes.data(), bytes.size(), end - result);
  if (got > 0) read->content.append(bytes, 0, static_cast<size_t>(got));
}

// Not to be called with the lock held: the library logs while it is given the lines.
std::vector<PropertyLine> Recorder::FindLines() {
  std::vector<FileRead> reads;
  {
    std::lock_guard<std::mutex> guard(lock_);
    reads.swap(reads_);
    earlier_reads_.insert(earlier_reads_.end(), reads.begin(), reads.end());
  }
  return reads.empty() ? std::vector<PropertyLine>() : finder_->Find(std::move(reads));
}

void Recorder::AddLines(std::vector<PropertyLine> lines) {
  for (PropertyLine& line : lines) {
    if (!line.filtered) lines_.emplace(line.name, line.value);
    Add(std::move(line));
  }
}

// A state file may hold a bare value.
void Recorder::AddWholeContent(const std::string& name, const std::string& value) {
  if (value.empty() || lines_.count({name, value}) != 0) return;
  for (const FileRead& file : earlier_reads_) {
    if (file.content != value) continue;
    lines_.emplace(name, value);
    return Add(PropertyLine{file.path, 0, name, value, false});
  }
}

// Owner and mode are set after the content is, so the state is looked at when the step is over.
void Recorder::CloseStep(std::vector<PropertyLine> lines) {
  if (record_.steps.empty()) return;
  AddLines(std::move(lines));
  earlier_reads_.clear();
  lines_.clear();
  for (Event& event : record_.steps.back().events) {
    auto* file = std::get_if<FileEvent>(&event.what);
    if (file == nullptr) continue;
    if (file->op == FileOp::kWrite || file->op == FileOp::kMkdir || file->op == FileOp::kChown) {
      file->after = StateOf(file->path);
    }
  }
}

void Recorder::FindChanges() {
  for (const auto& [path, before] : touched_) {
    const Snapshot now = Look(path);
    if (Same(before.state, now.state) && before.content == now.content) continue;
    const char* change = before.state.type.empty() ? "added" : "changed";
    record_.files.push_back({now.state.type.empty() ? "removed" : change, path, now.state});
  }
}

Recorder::Snapshot Recorder::Look(const std::string& path) {
  Snapshot snapshot;
  snapshot.state = StateOf(path);
  if (snapshot.state.type != "file") return snapshot;
  std::ifstream stream(path, std::ios::binary);
  snapshot.content.assign(std::istreambuf_iterator<char>(stream), {});
  return snapshot;
}

}  // namespace extprop
