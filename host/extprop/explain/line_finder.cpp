#include "host/extprop/explain/line_finder.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/strings.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include "host/extprop/boot/loaders.h"

namespace extprop {

namespace {

using android::base::unique_fd;
using android::init::PropertyMap;

// What the trial of the moment gathers, on the thread that makes it.
thread_local std::vector<std::string>* opened_files = nullptr;
thread_local PropertyMap* filled_map = nullptr;

// A directory that no path leads to, so that the device's files stay as they are.
unique_fd MakeHiddenDirectory() {
  unique_fd context(fsopen("tmpfs", FSOPEN_CLOEXEC));
  if (context < 0 || fsconfig(context, FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0) return {};
  return unique_fd(fsmount(context, FSMOUNT_CLOEXEC, 0));
}

bool Holds(const std::vector<std::string>& paths, const std::string& path) {
  return std::find(paths.begin(), paths.end(), path) != paths.end();
}

}  // namespace

LineFinder::LineFinder(android::init::IInitExtensionProperty* service)
    : service_(service), directory_fd_(MakeHiddenDirectory()) {
  // Where the library looks for a partition's properties.
  if (directory_fd_ >= 0) {
    file_.reset(openat(directory_fd_, "build.prop", O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  }
  if (file_ < 0) throw std::system_error(errno, std::generic_category(), "cannot attribute lines");
  directory_ = "/proc/self/fd/" + std::to_string(directory_fd_.get());
}

std::vector<PropertyLine> LineFinder::Find(std::vector<FileRead> reads) {
  std::lock_guard<std::mutex> guard(lock_);
  reads_ = std::move(reads);
  next_ = 0;
  std::vector<PropertyLine> lines;
  while (next_ < reads_.size()) FindInNextFile(nullptr, &lines);
  return lines;
}

bool LineFinder::IsTrying() {
  return opened_files != nullptr;
}

void LineFinder::OnOpen(const std::string& path) {
  opened_files->push_back(path);
}

LineFinder::Trial LineFinder::Try(const std::string& line) {
  static const Loader* const partition = FindLoader("partition", true);
  Trial trial;
  if (ftruncate(file_, 0) != 0 || pwrite(file_, line.data(), line.size(), 0) < 0) return trial;
  opened_files = &trial.opened;
  filled_map = &trial.properties;
  partition->call(service_, directory_,
                  [](int /*mode*/, PropertyMap map) { *filled_map = std::move(map); });
  opened_files = nullptr;
  if (!trial.opened.empty()) trial.opened.erase(trial.opened.begin());  // the line's own file
  return trial;
}

// Takes the next file and, where its lines import, those after it. `import` is the trial of the
// line that imported it, null for a file that the library opened by itself.
void LineFinder::FindInNextFile(const Trial* import, std::vector<PropertyLine>* lines) {
  const FileRead file = reads_[next_++];
  inside_.push_back(file.path);
  unsigned number = 0;
  for (const std::string& line : android::base::Split(file.content, "\n")) {
    ++number;
    if (line.empty()) continue;
    const Trial trial = Try(line);
    if (Followed(trial, import)) {
      FindInNextFile(&trial, lines);
    } else if (trial.opened.empty()) {
      for (const auto& [name, value] : trial.properties) {
        const bool filtered = import != nullptr && import->properties.count(name) == 0;
        lines->push_back({file.path, number, name, value, filtered});
      }
    }
  }
  inside_.pop_back();
}

// Alone, a line leads where it did not lead in its file if a filter applied there or the import
// went round in a circle. What was really opened, and the trial of the import itself, tell.
bool LineFinder::Followed(const Trial& trial, const Trial* import) const {
  if (trial.opened.empty() || next_ == reads_.size()) return false;
  const std::string& path = trial.opened.front();
  if (reads_[next_].path != path || Holds(inside_, path)) return false;
  return import == nullptr || Holds(import->opened, path);
}

}  // namespace extprop
