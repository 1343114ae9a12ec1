#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

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
};

// Puts the calling process into a private root. To be called early: as an ordinary user, the
// process must not have a second thread. The process keeps its open descriptors. /proc is there
// too. On failure the error says which step the kernel refused and what can be done; the process
// must not go on with work that expects the root.
android::base::Result<void> EnterPrivateRoot(const PrivateRootOptions& options);

// A child process inside a private root. It runs no exit handlers, and is killed with this object
// or where the thread that started it dies. Movable only.
class RootProcess {
 public:
  // What the body writes into `output` is what Read returns; its result is the exit status.
  using Body = std::function<int(int output)>;

  // Starts `body` in a private root. Fails where there can be no further process.
  static android::base::Result<RootProcess> Start(const PrivateRootOptions& options,
                                                  const Body& body);
  RootProcess(RootProcess&& other) noexcept;
  RootProcess& operator=(RootProcess&&) = delete;
  ~RootProcess();

  // Returns what the body wrote by the time it closed the output or ended. An error means that the
  // root could not be made, so that the body never ran. To be called once; a process that was
  // forked since may call it in place of this one.
  android::base::Result<std::string> Read();

  // Waits for the end and returns the exit status. An error means that the process was ended by a
  // signal, as it is by an exception. To be called once.
  android::base::Result<int> Wait();

 private:
  RootProcess() = default;

  pid_t process_ = -1;
  android::base::unique_fd failure_;  // says why there is no root
  android::base::unique_fd output_;
};

// Runs `body` in a child process inside a private root and returns its exit status. Fails as
// RootProcess does.
android::base::Result<int> RunInPrivateRoot(const PrivateRootOptions& options,
                                            const std::function<int()>& body);

}  // namespace sandbox
