#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/extprop/boot/boot_record.h"

namespace extprop {

// The files that a boot changes, as they were before and as they are. Paths have no links in their
// directories; a link at a path's end is what is there.
class ChangedFiles {
 public:
  // To be told of a path before it is first changed. Returns whether anything is there.
  bool Touch(const std::string& path);

  // To be told who owns a file that only a device's root could give away, and that a path is gone.
  void SetOwner(const std::string& path, uid_t owner, gid_t group) {
    owners_[path] = {owner, group};
  }
  void Forget(const std::string& path) { owners_.erase(path); }

  FileState StateOf(const std::string& path) const;

  // Returns what has changed of all that was touched, by path.
  std::vector<FileChange> Find() const;

 private:
  struct Snapshot {
    FileState state;
    std::string content;
  };
  Snapshot Look(const std::string& path) const;

  std::map<std::string, Snapshot> touched_;
  std::map<std::string, std::pair<uid_t, gid_t>> owners_;
};

}  // namespace extprop
