#include "host/extprop/boot/kept_tree.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include <vector>

#include "host/extprop/boot/property_input.h"
#include "host/sandbox/tree_copy.h"

namespace extprop {

namespace {

using android::base::unique_fd;

constexpr const char* kStoredFile = ".extprop-stored.prop";
constexpr const char* kIncompleteFile = ".extprop-incomplete";

Result<void> WriteNew(int directory, const char* name, const std::string& text) {
  unique_fd file(openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (file < 0 || !android::base::WriteStringToFd(text, file)) {
    return ErrnoError() << "cannot write " << name;
  }
  return {};
}

}  // namespace

Result<unique_fd> HoldTree() {
  constexpr unsigned kFlags = OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE;
  unique_fd root(open_tree(AT_FDCWD, "/", kFlags));
  if (root < 0) return ErrnoError() << "cannot reach the tree";
  return root;
}

Result<void> KeepTree(const unique_fd& root, int to, bool with_proc, const BootRecord& record) {
  Result<void> done = WriteNew(to, kIncompleteFile, "");
  if (!done.ok()) return done;
  std::vector<std::string> unreadable;
  done = sandbox::CopyTree(root, to, {kStoredFile, "proc"}, &unreadable, true);
  for (const std::string& path : unreadable) {
    fprintf(stderr, "extprop: warning: not kept, as it cannot be read: /%s\n", path.c_str());
  }
  if (done.ok() && with_proc) {
    // The tree's own, which the sandbox's mount hides.
    unique_fd top(open_tree(AT_FDCWD, "/", OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC));
    if (top < 0) return ErrnoError() << "cannot reach its /proc";
    done = sandbox::CopyPlace(top, to, "proc");
  }
  if (done.ok()) done = WriteNew(to, kStoredFile, StoredText(record));
  if (!done.ok()) return done;
  if (unlinkat(to, kIncompleteFile, 0) != 0) return ErrnoError() << "cannot complete it";
  return {};
}

Result<void> ReadStored(const std::string& tree, Properties* properties) {
  if (access((tree + "/" + kIncompleteFile).c_str(), F_OK) == 0) {
    return Error() << tree << ": not a whole tree: the boot that was to keep it was interrupted";
  }
  const std::string stored = tree + "/" + kStoredFile;
  return access(stored.c_str(), F_OK) == 0 ? ReadPrinted(stored, properties) : Result<void>();
}

}  // namespace extprop
