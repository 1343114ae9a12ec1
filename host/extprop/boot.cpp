#include "host/extprop/boot.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <nlohmann/json.hpp>
#include <thread>

#include "host/extprop/recorder.h"
#include "host/platform/system_properties.h"
#include "host/sandbox/private_root.h"
#include "host/sandbox/tree_copy.h"

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;
using namespace std::chrono_literals;

// Returns whether `condition` came true in time.
template <typename Condition>
bool WaitFor(std::chrono::milliseconds limit, Condition condition) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

bool Lives(pid_t thread) {
  return thread != 0 && syscall(SYS_tgkill, getpid(), thread, 0) == 0;
}

bool IsRequest(const std::string& word) {
  return word == "boot_mount" || word == "module_bind_single_boot" ||
         word == "bind_basic_point_boot";
}

// A request is served when the thread says so; the last word ends the thread without a message; any
// other word is only looked at.
Result<void> Post(const std::string& word, Recorder* recorder) {
  const size_t served = recorder->requests_served();
  const pid_t thread = recorder->bind_thread();
  if (!Lives(thread)) return Error() << "no bind thread is there to serve it";
  device::ApplyProperty(kRequestProperty, word);
  if (!IsRequest(word) && word != "boot_mount_bind_complete") {
    std::this_thread::sleep_for(5ms);
    return {};
  }
  const bool done = WaitFor(10s, [&] {
    return !Lives(thread) || (IsRequest(word) && recorder->requests_served() > served);
  });
  if (!done) return Error() << "the bind thread has not served it within 10 seconds";
  if (IsRequest(word) && recorder->requests_served() == served) {
    return Error() << "the bind thread ended without serving it";
  }
  return {};
}

Result<void> Call(const PlannedStep& planned, android::init::IInitExtensionProperty* service,
                  Recorder* recorder) {
  const pid_t thread_before = recorder->bind_thread();
  try {
    planned.loader->call(service, planned.argument, Recorder::OnHandOver);
  } catch (const std::exception& error) {
    return Error() << "the library threw an exception, which ends init: " << error.what();
  }
  // What a new thread says first belongs to the command that started it.
  const bool starts_thread =
      std::string(planned.loader->name) == "service" && planned.argument == "check_mount";
  if (starts_thread) WaitFor(1s, [&] { return recorder->bind_thread() != thread_before; });
  return {};
}

Step Describe(const PlannedStep& planned) {
  Step step;
  step.post = planned.loader == nullptr;
  step.name = step.post ? planned.argument : planned.loader->name;
  if (!step.post) step.argument = planned.argument;
  return step;
}

// Copies the root as it is under the mounts that the library and the sandbox made.
Result<void> KeepTree(int keep_fd, bool had_proc) {
  unique_fd root(open_tree(AT_FDCWD, "/", OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC));
  if (root < 0) return ErrnoError() << "cannot reach the resulting tree";
  return sandbox::CopyTree(
      root, keep_fd, had_proc ? std::vector<std::string>{} : std::vector<std::string>{"proc"});
}

// In the child: the record, or why there is none, goes to `result_fd`.
int RunChild(const BootPlan& plan, Factory factory, bool had_proc, int result_fd) {
  nlohmann::json result = {{"record", ToJson(PlayHost(plan, factory))}, {"error", ""}};
  if (plan.keep_fd >= 0) {
    Result<void> kept = KeepTree(plan.keep_fd, had_proc);
    if (!kept.ok()) result["error"] = "cannot keep the resulting tree: " + kept.error().message();
  }
  const std::vector<std::uint8_t> bytes = nlohmann::json::to_cbor(result);
  return android::base::WriteFully(result_fd, bytes.data(), bytes.size()) ? 0 : 1;
}

// Over files of another user, an ordinary user's overlay would be read-only.
bool NeedsCopy(const std::string& tree) {
  struct stat about;
  return geteuid() != 0 && stat(tree.c_str(), &about) == 0 && about.st_uid != geteuid();
}

}  // namespace

BootRecord PlayHost(const BootPlan& plan, Factory factory) {
  umask(0);  // init has none
  Recorder* recorder = Recorder::Start(plan.properties);
  android::init::IInitExtensionProperty* service = factory(kLibraryName);
  if (plan.attribute) recorder->Attribute(service);
  for (const PlannedStep& planned : plan.steps) {
    recorder->BeginStep(Describe(planned));
    Result<void> done = planned.loader == nullptr ? Post(planned.argument, recorder)
                                                  : Call(planned, service, recorder);
    if (!done.ok()) {
      recorder->FailStep(done.error().message());
      break;
    }
  }
  return recorder->Finish();
}

Result<BootRecord> RunBoot(const BootPlan& plan) {
  // Before the private root hides it.
  Result<Factory> factory = LoadLibrary(plan.library);
  if (!factory.ok()) return factory.error();
  unique_fd result_fd(memfd_create("boot record", MFD_CLOEXEC));
  if (result_fd < 0) return ErrnoError() << "cannot make room for the record";
  const bool had_proc = access((plan.tree + "/proc").c_str(), F_OK) == 0;

  sandbox::PrivateRootOptions options;
  options.tree = plan.tree;
  options.copy = NeedsCopy(plan.tree);
  Result<int> status = sandbox::RunInPrivateRoot(
      options, [&] { return RunChild(plan, *factory, had_proc, result_fd.get()); });
  if (!status.ok()) return status.error();

  std::string bytes;
  lseek(result_fd, 0, SEEK_SET);
  if (*status != 0 || !android::base::ReadFdToString(result_fd, &bytes)) {
    return Error() << "the boot left no record";
  }
  const nlohmann::json result = nlohmann::json::from_cbor(bytes);
  const auto error = result.at("error").get<std::string>();
  if (!error.empty()) return Error() << error;
  return FromJson(result.at("record"));
}

}  // namespace extprop
