#pragma once

#include <functional>
#include <string>
#include <vector>

#include <android-base/result.h>

// A private root: a mount namespace of its own (and a user namespace, where the caller is not root)
// whose "/" shows a directory tree. Absolute paths are real files in it and bind mounts are real
// mounts, yet the tree itself is never written to, and everything is gone with the last process in
// the namespace, however that process ends.
namespace sandbox {

// Something shown at a place of its own.
struct Layer {
  std::string place;   // an absolute path in the root, without links; made where it is not there
  std::string source;  // a directory, or a file or link, which is not followed
};

struct PrivateRootOptions {
  // The directory shown as "/"; empty for an empty root. What is mounted below it is not shown.
  std::string tree;
  // Shown over the tree and each over those before it. A file has the place's last name.
  std::vector<Layer> layers = {};
  // Absolute paths of directories, none below another, in which and below which everything can be
  // changed whoever owns it. Elsewhere, an ordinary user cannot change what belongs to somebody
  // else. What they hold is copied then, so they had better be small.
  std::vector<std::string> writable = {};
  // Copy what is shown instead of laying a writable overlay over it. Done by itself where the
  // kernel refuses the overlay. What the caller may not read is left out then.
  bool copy = false;
  // A descriptor of the mount namespace that the root is made from, for a process that is in a
  // private root of its own already; -1 for the one that the process is in. Only for root.
  int mount_namespace = -1;
};

// Puts the calling process into a private root. To be called early: as an ordinary user, the
// process must not have a second thread. The process keeps its open descriptors. /proc is there
// too. On failure the error says which step the kernel refused and what can be done; the process
// must not go on with work that expects the root.
android::base::Result<void> EnterPrivateRoot(const PrivateRootOptions& options);

// Runs `body` in a child process inside a private root and returns its exit status. The child runs
// no exit handlers and is killed if the calling thread dies. An error means that the root could not
// be made (body never ran) or that the child was ended by a signal, as it is by an exception.
android::base::Result<int> RunInPrivateRoot(const PrivateRootOptions& options,
                                            const std::function<int()>& body);

}  // namespace sandbox
