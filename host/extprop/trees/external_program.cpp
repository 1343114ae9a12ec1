#include "host/extprop/trees/external_program.h"

#include <android-base/file.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

constexpr int kNotFound = 127;  // as a shell's

[[noreturn]] void Become(const std::vector<std::string>& command, const std::string& directory,
                         int errors) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  // An ordinary user's PATH lacks where Debian puts the file systems' tools.
  const char* path = getenv("PATH");
  setenv("PATH",
         (std::string(path == nullptr ? "/usr/bin:/bin" : path) + ":/usr/sbin:/sbin").c_str(), 1);
  setenv("LC_ALL", "C", 1);
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(nothing, STDIN_FILENO);
  dup2(nothing, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  if (chdir(directory.c_str()) == 0) execvp(arguments[0], arguments.data());
  _exit(errno == ENOENT ? kNotFound : EXIT_FAILURE);
}

// The messages as one line of text.
std::string Quoted(const std::string& errors) {
  std::vector<std::string> lines;
  for (const std::string& line : android::base::Split(errors, "\n")) {
    const std::string text = android::base::Trim(line);
    if (!text.empty()) lines.push_back(text);
  }
  return android::base::Join(lines, "; ");
}

}  // namespace

Result<std::string> RunProgram(const std::vector<std::string>& command, const std::string& package,
                               const std::string& directory) {
  unique_fd errors, errors_writer;
  if (!Pipe(&errors, &errors_writer)) return ErrnoError() << "cannot make a pipe";
  const pid_t child = fork();
  if (child < 0) return ErrnoError() << "cannot start " << command[0];
  if (child == 0) Become(command, directory, errors_writer.get());
  errors_writer.reset();
  std::string text;
  android::base::ReadFdToString(errors, &text);
  int status = 0;
  if (TEMP_FAILURE_RETRY(waitpid(child, &status, 0)) < 0) return ErrnoError() << "cannot wait";
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return text;
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNotFound) {
    return Error() << command[0] << " is needed; install the package " << package;
  }
  return Error() << command[0] << ": " << (text.empty() ? "failed" : Quoted(text));
}

}  // namespace extprop
