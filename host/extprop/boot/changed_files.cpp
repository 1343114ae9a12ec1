#include "host/extprop/boot/changed_files.h"

#include <android-base/file.h>
#include <sys/stat.h>

#include <tuple>

namespace extprop {

bool ChangedFiles::Touch(const std::string& path) {
  if (touched_.count(path) == 0) touched_[path] = Look(path);
  return !StateOf(path).type.empty();
}

FileState ChangedFiles::StateOf(const std::string& path) const {
  FileState state;
  struct stat status;
  if (lstat(path.c_str(), &status) != 0) return state;
  state.type = S_ISREG(status.st_mode) ? "file" : S_ISDIR(status.st_mode) ? "directory" : "other";
  if (S_ISREG(status.st_mode)) state.size = status.st_size;
  state.mode = status.st_mode & 07777;
  state.uid = status.st_uid;
  state.gid = status.st_gid;
  if (const auto owner = owners_.find(path); owner != owners_.end()) {
    std::tie(state.uid, state.gid) = owner->second;
  }
  return state;
}

std::vector<FileChange> ChangedFiles::Find() const {
  const auto parts = [](const Snapshot& file) {
    return std::tie(file.state.type, file.state.mode, file.state.uid, file.state.gid, file.content);
  };
  std::vector<FileChange> changes;
  for (const auto& [path, before] : touched_) {
    const Snapshot now = Look(path);
    if (parts(before) == parts(now)) continue;
    const char* change = before.state.type.empty() ? "added" : "changed";
    changes.push_back({now.state.type.empty() ? "removed" : change, path, now.state});
  }
  return changes;
}

ChangedFiles::Snapshot ChangedFiles::Look(const std::string& path) const {
  Snapshot snapshot = {StateOf(path), ""};
  if (snapshot.state.type == "file") android::base::ReadFileToString(path, &snapshot.content);
  return snapshot;
}

}  // namespace extprop
