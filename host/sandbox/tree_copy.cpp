#include "host/sandbox/tree_copy.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace sandbox {
namespace {

using android::base::ErrnoError;
using android::base::Result;
using android::base::unique_fd;

using Names = std::vector<std::string>;

// One name in the directory `from` and what is there, to be made in the directory `to`.
struct Entry {
  int from;
  int to;
  std::string name;
  std::string path;
  Names* unreadable = nullptr;
  bool with_mounted = false;
  struct stat about = {};
};

// The error for errno.
Result<void> Failed(const Entry& entry) {
  return ErrnoError() << "cannot copy " << entry.path;
}

// Returns whether errno says that the caller may not read it, and that is to be noted only.
bool NoteUnreadable(const Entry& entry) {
  if (errno != EACCES || entry.unreadable == nullptr) return false;
  entry.unreadable->push_back(entry.path);
  return true;
}

unique_fd OpenDirectory(int parent, const std::string& name) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  return unique_fd(openat(parent, name.c_str(), kFlags));
}

// Sorted, so that the same tree always fails at the same place.
bool ListDirectory(int directory, Names* names) {
  unique_fd own = OpenDirectory(directory, ".");
  if (own < 0) return false;
  std::unique_ptr<DIR, int (*)(DIR*)> stream(android::base::Fdopendir(std::move(own)), closedir);
  if (stream == nullptr) return false;
  errno = 0;
  while (const dirent* entry = readdir(stream.get())) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names->push_back(std::move(name));
    errno = 0;
  }
  std::sort(names->begin(), names->end());
  return errno == 0;
}

bool IsMountPoint(const Entry& entry) {
  struct statx about;
  constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
  if (statx(entry.from, entry.name.c_str(), kFlags, STATX_TYPE, &about) != 0) return false;
  return (about.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

unique_fd OpenFile(const Entry& entry) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC;
  return unique_fd(openat(entry.from, entry.name.c_str(), kFlags));
}

bool CopyContent(const unique_fd& in, const Entry& entry) {
  constexpr int kWriteFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  unique_fd out(openat(entry.to, entry.name.c_str(), kWriteFlags, 0600));
  if (out < 0) return false;
  constexpr size_t kChunk = 1 << 30;
  ssize_t sent = 0;
  do {
    sent = TEMP_FAILURE_RETRY(sendfile(out.get(), in.get(), nullptr, kChunk));
  } while (sent > 0);
  return sent == 0;
}

bool CopyLink(const Entry& entry) {
  char target[PATH_MAX];
  ssize_t length = readlinkat(entry.from, entry.name.c_str(), target, sizeof(target) - 1);
  if (length < 0) return false;
  target[length] = '\0';
  return symlinkat(target, entry.to, entry.name.c_str()) == 0;
}

bool KeepAttributes(const Entry& entry) {
  const char* name = entry.name.c_str();
  // EINVAL: an owner that the user namespace does not know.
  if (fchownat(entry.to, name, entry.about.st_uid, entry.about.st_gid, AT_SYMLINK_NOFOLLOW) != 0 &&
      errno != EPERM && errno != EINVAL) {
    return false;
  }
  // After the owner, whose change clears the set-user-ID bit.
  if (!S_ISLNK(entry.about.st_mode) &&
      fchmodat(entry.to, name, entry.about.st_mode & ~static_cast<mode_t>(S_IFMT), 0) != 0) {
    return false;
  }
  const timespec times[] = {entry.about.st_atim, entry.about.st_mtim};
  return utimensat(entry.to, name, times, AT_SYMLINK_NOFOLLOW) == 0;
}

Result<void> CopyEntry(Entry entry);

Result<void> CopyEntries(int from, int to, const std::string& prefix, const Names& excluded,
                         Names* unreadable, bool with_mounted) {
  Names names;
  if (!ListDirectory(from, &names)) return ErrnoError() << "cannot list " << prefix << ".";
  for (const std::string& name : names) {
    if (std::find(excluded.begin(), excluded.end(), name) != excluded.end()) continue;
    Result<void> copied = CopyEntry({from, to, name, prefix + name, unreadable, with_mounted});
    if (!copied.ok()) return copied;
  }
  return {};
}

Result<void> CopyDirectory(const Entry& entry, bool empty) {
  unique_fd to;
  if (mkdirat(entry.to, entry.name.c_str(), 0700) == 0) to = OpenDirectory(entry.to, entry.name);
  if (to < 0) return Failed(entry);
  if (empty) return {};
  unique_fd from = OpenDirectory(entry.from, entry.name);
  if (from < 0) return NoteUnreadable(entry) ? Result<void>() : Failed(entry);
  return CopyEntries(from.get(), to.get(), entry.path + "/", {}, entry.unreadable,
                     entry.with_mounted);
}

Result<void> CopyEntry(Entry entry) {
  const char* name = entry.name.c_str();
  if (fstatat(entry.from, name, &entry.about, AT_SYMLINK_NOFOLLOW) != 0) {
    return NoteUnreadable(entry) ? Result<void>() : Failed(entry);
  }
  const bool left_out = !entry.with_mounted && IsMountPoint(entry);
  if (left_out && !S_ISDIR(entry.about.st_mode)) return {};
  switch (entry.about.st_mode & S_IFMT) {
    case S_IFDIR:
      if (Result<void> copied = CopyDirectory(entry, left_out); !copied.ok()) return copied;
      break;
    case S_IFREG: {
      unique_fd in = OpenFile(entry);
      if (in < 0 && NoteUnreadable(entry)) return {};
      if (in < 0 || !CopyContent(in, entry)) return Failed(entry);
      break;
    }
    case S_IFLNK:
      if (!CopyLink(entry)) return Failed(entry);
      break;
    default:
      if (mknodat(entry.to, name, entry.about.st_mode, entry.about.st_rdev) != 0) {
        if (errno == EPERM) return {};
        return Failed(entry);
      }
  }
  if (!KeepAttributes(entry)) return Failed(entry);
  return {};
}

Result<void> CopyWay(int from, int to, const std::string& place, Names* unreadable) {
  if (place.empty()) return CopyEntries(from, to, "", {}, unreadable, false);
  const size_t slash = place.find('/');
  Entry entry = {from, to, place.substr(0, slash), place, unreadable};
  const char* name = entry.name.c_str();
  if (fstatat(from, name, &entry.about, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISDIR(entry.about.st_mode) || IsMountPoint(entry)) {
    return {};
  }
  if (mkdirat(to, name, 0700) != 0 && errno != EEXIST) return Failed(entry);
  const unique_fd next_from = OpenDirectory(from, entry.name);
  const unique_fd next_to = OpenDirectory(to, entry.name);
  if (next_to < 0) return Failed(entry);
  if (next_from >= 0) {
    const std::string rest = slash == std::string::npos ? "" : place.substr(slash + 1);
    Result<void> copied = CopyWay(next_from.get(), next_to.get(), rest, unreadable);
    if (!copied.ok()) return copied;
  }
  if (!KeepAttributes(entry)) return Failed(entry);
  return {};
}

}  // namespace

Result<void> CopyTree(android::base::borrowed_fd from, android::base::borrowed_fd to,
                      const Names& excluded, Names* unreadable, bool with_mounted) {
  return CopyEntries(from.get(), to.get(), "", excluded, unreadable, with_mounted);
}

Result<void> CopyPlace(android::base::borrowed_fd from, android::base::borrowed_fd to,
                       const std::string& place) {
  Names unreadable;
  return CopyWay(from.get(), to.get(), place, &unreadable);
}

Result<void> CopyFile(android::base::borrowed_fd from, android::base::borrowed_fd to,
                      const std::string& name) {
  Names unreadable;
  return CopyEntry({from.get(), to.get(), name, name, &unreadable, true});
}

}  // namespace sandbox
