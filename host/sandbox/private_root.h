#pragma once

#include <functional>
#include <string>

#include <android-base/result.h>

// A private root: a mount namespace of its own (and a user namespace, where the caller is not root)
// whose "/" shows a directory tree. Absolute paths are real files in it and bind mounts are real
// mounts, yet the tree itself is never written to, and everything is gone with the last process in
// the namespace, however that process ends.
namespace sandbox {

struct PrivateRootOptions {
  // The directory shown as "/"; empty for an empty root.
  std::string tree;
  // Copy the tree instead of laying a writable overlay over it. Done by itself where the kernel
  // refuses the overlay, and for an ordinary user whose tree belongs to somebody else.
  bool copy = false;
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
