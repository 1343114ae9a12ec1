#include "host/sandbox/private_root.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <utility>

#include "host/sandbox/root_layers.h"

namespace sandbox {
namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;
using android::base::WriteStringToFile;

// Returns whether a user namespace had to be made too.
Result<bool> LeaveNamespaces() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (user == 0) {
    if (unshare(CLONE_NEWNS) == 0) return false;
    if (errno != EPERM) return Refused("unshare a mount namespace");
  }
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
    if (errno == EINVAL) return Error() << "private root: the process has a second thread";
    return Refused("unshare a user and a mount namespace");
  }
  // The kernel takes a group map from an ordinary user only after setgroups is denied.
  if (!WriteStringToFile("deny", "/proc/self/setgroups") ||
      !WriteStringToFile("0 " + std::to_string(user) + " 1", "/proc/self/uid_map") ||
      !WriteStringToFile("0 " + std::to_string(group) + " 1", "/proc/self/gid_map")) {
    return Refused("map the user in the user namespace");
  }
  return true;
}

// Mounts /proc into the working directory, the root to be.
bool BindProc() {
  mkdir("proc", 0555);
  struct stat about;
  if (lstat("proc", &about) != 0) return false;
  // A symbolic link would lead the mount out of the tree.
  errno = ENOTDIR;
  return S_ISDIR(about.st_mode) && mount("/proc", "proc", nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

// Makes the working directory the root and lets go of the old one.
bool PivotRoot() {
  // With the same path twice, the old root ends up on top of the new one.
  return syscall(SYS_pivot_root, ".", ".") == 0 && umount2(".", MNT_DETACH) == 0 && chdir("/") == 0;
}

bool DieWithParent(pid_t parent) {
  return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent;
}

// noexcept, so that an exception ends the child instead of unwinding into the caller's copy.
[[noreturn]] void RunChild(pid_t parent, const PrivateRootOptions& options,
                           const RootProcess::Body& body, unique_fd failure, int output) noexcept {
  if (!DieWithParent(parent)) _exit(EXIT_FAILURE);
  Result<void> entered = EnterPrivateRoot(options);
  // Once more, as the kernel may drop the request with a change of credentials.
  if (entered.ok() && !DieWithParent(parent)) _exit(EXIT_FAILURE);
  if (!entered.ok()) {
    android::base::WriteStringToFd(entered.error().message(), failure);
    _exit(EXIT_FAILURE);
  }
  failure.reset();
  const int status = body(output);
  fflush(nullptr);
  _exit(status);
}

}  // namespace

Result<void> EnterPrivateRoot(const PrivateRootOptions& options) {
  Result<bool> user_namespace = LeaveNamespaces();
  if (!user_namespace.ok()) return user_namespace.error();
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    if (errno == EINVAL) {
      return Error()
             << "private root: \"/\" is no mount point, as in a plain chroot; enter the chroot "
                "after binding its directory onto itself (mount --bind DIR DIR)";
    }
    return Refused("make the mounts private");
  }
  Result<std::string> root = BuildRoot(options, *user_namespace);
  if (!root.ok()) return root.error();
  if (chdir(root->c_str()) != 0) return Refused("enter " + *root);
  if (!BindProc()) return Refused("mount /proc");
  if (!PivotRoot()) return Refused("pivot_root");
  return {};
}

Result<RootProcess> RootProcess::Start(const PrivateRootOptions& options, const Body& body) {
  RootProcess started;
  unique_fd failure, output;
  if (!Pipe(&started.failure_, &failure) || !Pipe(&started.output_, &output)) {
    return ErrnoError() << "cannot make a pipe";
  }
  fflush(nullptr);
  const pid_t parent = getpid();
  started.process_ = fork();
  if (started.process_ < 0) return ErrnoError() << "cannot start a process for the private root";
  if (started.process_ == 0) {
    started.failure_.reset();
    started.output_.reset();
    RunChild(parent, options, body, std::move(failure), output.release());
  }
  return started;
}

RootProcess::RootProcess(RootProcess&& other) noexcept
    : process_(std::exchange(other.process_, -1)),
      failure_(std::move(other.failure_)),
      output_(std::move(other.output_)) {}

RootProcess::~RootProcess() {
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  TEMP_FAILURE_RETRY(waitpid(process_, nullptr, 0));
}

Result<std::string> RootProcess::Read() {
  std::string failure, output;
  android::base::ReadFdToString(failure_, &failure);
  if (!failure.empty()) return Error() << failure;
  android::base::ReadFdToString(output_, &output);
  return output;
}

Result<int> RootProcess::Wait() {
  int status = 0;
  if (TEMP_FAILURE_RETRY(waitpid(std::exchange(process_, -1), &status, 0)) < 0) {
    return ErrnoError() << "cannot wait";
  }
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  const int number = WTERMSIG(status);
  return Error() << "the process in the private root was ended by signal " << number << " ("
                 << strsignal(number) << ")";
}

Result<int> RunInPrivateRoot(const PrivateRootOptions& options, const std::function<int()>& body) {
  Result<RootProcess> process = RootProcess::Start(options, [&body](int output) {
    close(output);
    return body();
  });
  if (!process.ok()) return process.error();
  Result<std::string> output = process->Read();
  if (!output.ok()) return output.error();
  return process->Wait();
}

}  // namespace sandbox
