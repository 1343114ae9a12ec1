#include "host/extprop/boot/in_tree.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <sys/mman.h>
#include <unistd.h>

#include <exception>
#include <mutex>

#include "host/sandbox/private_root.h"

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

// What stands behind the outcome's text.
constexpr char kDone = '+';
constexpr char kFailed = '-';

int outcome_fd = -1;  // the child's
std::mutex outcome_lock;

int Report(char mark, const std::string& text) {
  std::lock_guard<std::mutex> guard(outcome_lock);
  const bool written = android::base::WriteStringToFd(text, outcome_fd) &&
                       android::base::WriteStringToFd(std::string(1, mark), outcome_fd);
  if (mark == kFailed) _exit(written ? 0 : 1);
  return written ? 0 : 1;
}

int RunChild(const std::function<Result<std::string>()>& work) {
  try {
    Result<std::string> result = work();
    return result.ok() ? Report(kDone, *result) : Report(kFailed, result.error().message());
  } catch (const std::exception& error) {
    return Report(kFailed, error.what());
  }
}

}  // namespace

Result<std::string> RunInTree(const DeviceTree& tree,
                              const std::function<Result<std::string>()>& work) {
  unique_fd outcome(memfd_create("outcome", MFD_CLOEXEC));
  if (outcome < 0) return ErrnoError() << "cannot make room for the outcome";
  Result<int> status = sandbox::RunInPrivateRoot(tree.root, [&] {
    outcome_fd = outcome.get();
    return RunChild(work);
  });
  if (!status.ok()) return status.error();

  std::string text;
  lseek(outcome, 0, SEEK_SET);
  if (*status != 0 || !android::base::ReadFdToString(outcome, &text) || text.empty()) {
    return Error() << "the child process left no outcome";
  }
  const char mark = text.back();
  text.pop_back();
  if (mark == kFailed) return Error() << text;
  return text;
}

void EndChild(const std::string& error) {
  Report(kFailed, error);
  _exit(1);
}

}  // namespace extprop
