#include "host/extprop/check/meanwhile.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <android-base/file.h>

#include <exception>
#include <utility>

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

// What stands before the outcome's text.
constexpr char kDone = '+';
constexpr char kFailed = '-';

void Send(int output, const Result<std::string>& outcome) {
  const std::string text = outcome.ok() ? kDone + *outcome : kFailed + outcome.error().message();
  const size_t size = text.size();
  android::base::WriteFully(output, &size, sizeof(size));
  android::base::WriteFully(output, text.data(), size);
}

// Empty where nothing was sent.
std::string Receive(int input) {
  size_t size = 0;
  if (!android::base::ReadFully(input, &size, sizeof(size))) return "";
  std::string text(size, '\0');
  return android::base::ReadFully(input, text.data(), size) ? text : "";
}

Result<void> Do(const Meanwhile::Work& work, const Meanwhile::Input& input,
                const Meanwhile::Output& output) {
  try {
    return work(input, output);
  } catch (const std::exception& error) {
    return Error() << error.what();
  }
}

}  // namespace

Result<Meanwhile> Meanwhile::Start(const Work& work) {
  Meanwhile started;
  unique_fd read_input, write_output;
  if (!android::base::Pipe(&read_input, &started.input_) ||
      !android::base::Pipe(&started.output_, &write_output)) {
    return ErrnoError() << "cannot make a pipe";
  }
  const pid_t parent = getpid();
  started.process_ = fork();
  if (started.process_ < 0) return ErrnoError() << "cannot start a process";
  if (started.process_ > 0) return started;

  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  started.input_.reset();
  started.output_.reset();
  const auto input = [&]() -> Result<std::string> {
    std::string text;
    if (!android::base::ReadFdToString(read_input, &text)) return ErrnoError() << "no input";
    if (text.empty()) return Error() << "no input";
    return text;
  };
  const auto output = [&](const Result<std::string>& outcome) { Send(write_output, outcome); };
  Result<void> done = Do(work, input, output);
  if (!done.ok()) output(done.error());
  _exit(0);
}

Meanwhile::Meanwhile(Meanwhile&& other) noexcept
    : process_(std::exchange(other.process_, -1)),
      input_(std::move(other.input_)),
      output_(std::move(other.output_)) {}

Meanwhile::~Meanwhile() {
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

Result<std::string> Meanwhile::Finish(const std::string& input) {
  // Where the work has ended by itself, its outcome says why.
  struct sigaction ignore = {}, before;
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGPIPE, &ignore, &before);
  android::base::WriteStringToFd(input, input_);
  sigaction(SIGPIPE, &before, nullptr);
  input_.reset();
  std::string outcome = Receive(output_);
  if (outcome.empty()) return Error() << "the child process left no outcome";
  process_ = -1;
  const char mark = outcome[0];
  outcome.erase(0, 1);
  if (mark == kFailed) return Error() << outcome;
  return outcome;
}

}  // namespace extprop
