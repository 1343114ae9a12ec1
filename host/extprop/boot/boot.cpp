#include "host/extprop/boot/boot.h"

#include <android-base/file.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "host/extprop/boot/kept_tree.h"
#include "host/extprop/boot/recorder.h"
#include "host/platform/system_properties.h"
#include "host/sandbox/private_root.h"

namespace extprop {

namespace {

using android::base::unique_fd;
using namespace std::chrono_literals;

// For the allocator of a boot's process, in bytes.
constexpr int kEnough = 1 << 30;
constexpr int kHeapStep = 4 << 20;

// The watchdog sees to it that this ends.
template <typename Condition>
void WaitUntil(Condition condition) {
  while (!condition()) std::this_thread::sleep_for(1ms);
}

bool Lives(pid_t thread) {
  return thread != 0 && syscall(SYS_tgkill, getpid(), thread, 0) == 0;
}

// A request is served when the thread says so; the last word ends the thread without a message.
Result<void> Post(const std::string& word, Recorder* recorder) {
  const size_t served = recorder->requests_served();
  const pid_t thread = recorder->bind_thread();
  if (!Lives(thread)) return Error() << "no bind thread is there to serve it";
  device::ApplyProperty(kRequestProperty, word);
  WaitUntil([&] { return !Lives(thread) || recorder->requests_served() > served; });
  if (word != kLastWord && recorder->requests_served() == served) {
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
  if (StartsThread(planned)) WaitUntil([&] { return recorder->bind_thread() != thread_before; });
  return {};
}

Step Describe(const PlannedStep& planned) {
  Step step;
  step.post = planned.loader == nullptr;
  step.name = step.post ? planned.argument : planned.loader->name;
  if (!step.post) step.argument = planned.argument;
  return step;
}

// Gives up a boot that takes too long, and says what it waits for.
class Watchdog {
 public:
  Watchdog(const BootPlan& plan, Recorder* recorder, const GiveUp& give_up)
      : thread_([=, &plan] { Watch(plan, recorder, give_up); }) {}
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> guard(lock_);
      done_ = true;
    }
    condition_.notify_one();
    thread_.join();
  }

 private:
  void Watch(const BootPlan& plan, Recorder* recorder, const GiveUp& give_up) {
    std::unique_lock<std::mutex> guard(lock_);
    if (condition_.wait_for(guard, plan.timeout, [this] { return done_; })) return;
    const std::string file = recorder->WaitsFor();
    give_up(plan.title + " has not ended after " + std::to_string(plan.timeout.count()) + " s" +
            (file.empty() ? "" : "; it waits for " + file));
  }

  std::mutex lock_;
  std::condition_variable condition_;
  bool done_ = false;
  std::thread thread_;
};

bool FillsMap(const PlannedStep& step) {
  return step.loader != nullptr && step.loader->fills_map;
}

// What stands behind the text that a boot's process sends.
constexpr char kDone = '+';
constexpr char kFailed = '-';

// The only end of a boot's process: of the boot itself, its watchdog or its terminate handler.
[[noreturn]] void EndWith(int output, std::string text, char mark) {
  static std::mutex once;
  once.lock();
  const bool sent = android::base::WriteStringToFd(text += mark, output);
  _exit(sent ? EXIT_SUCCESS : EXIT_FAILURE);
}

Result<json> PlayAndDigest(const BootPlan& plan, bool had_proc, const Digest& digest,
                           const Library& library, const GiveUp& give_up) {
  try {
    Result<unique_fd> root = plan.keep_fd >= 0 ? HoldTree() : unique_fd();
    if (!root.ok()) return Error() << "cannot keep the resulting tree: " << root.error();
    // Never freed, as the process is about to end.
    const auto* record = new BootRecord(PlayHost(plan, library, give_up));
    Result<void> kept;
    // What a boot leaves that did not end is no device's.
    if (plan.keep_fd >= 0 && ErrorOf(*record).empty())
      kept = KeepTree(*root, plan.keep_fd, had_proc, *record);
    if (!kept.ok()) return Error() << "cannot keep the resulting tree: " << kept.error();
    return digest(*record);
  } catch (const std::exception& error) {
    return Error() << error.what();
  }
}

}  // namespace

bool StartsThread(const PlannedStep& step) {
  return step.loader == FindLoader("service", true) && step.argument == "check_mount";
}

BootRecord PlayHost(const BootPlan& plan, const Library& library, const GiveUp& give_up) {
  umask(0);  // init has none
  // The process is short: what it frees the kernel would only have to clear again.
  mallopt(M_TRIM_THRESHOLD, kEnough);
  mallopt(M_MMAP_THRESHOLD, kEnough);
  mallopt(M_TOP_PAD, kHeapStep);
  // Nor are small pieces kept apart, which a request for a large one would have to gather again.
  mallopt(M_MXFAST, 0);
  Recorder* recorder = Recorder::Start(plan, library);
  const Watchdog watchdog(plan, recorder, give_up);
  if (plan.prepare) plan.prepare();
  auto* service = library.factory(kLibraryName);
  for (const PlannedStep& planned : plan.steps) {
    // init loads them after the partitions, before anything else.
    const bool partition = FillsMap(planned);
    if (!partition) recorder->LoadStored();
    recorder->BeginStep(Describe(planned));
    if (!partition) recorder->LoadStored();
    Result<void> done = planned.loader == nullptr ? Post(planned.argument, recorder)
                                                  : Call(planned, service, recorder);
    if (done.ok()) continue;
    recorder->FailStep(done.error().message());
    break;
  }
  recorder->LoadStored();
  return recorder->Finish();
}

Result<StartedBoot> StartedBoot::Start(const BootPlan& plan, const Digest& digest) {
  // Both before the private root hides them.
  const bool had_proc = access((plan.device.directory + "/proc").c_str(), F_OK) == 0;
  Result<Library> library = LoadLibrary(plan.library);
  if (!library.ok()) return library.error();
  if (plan.lines && library->KSSI_OBSERVE_PropertyFiles == nullptr) {
    return Error() << "this library does not tell the lines that it reads";
  }
  Result<sandbox::RootProcess> process =
      sandbox::RootProcess::Start(plan.device.root, [&](int output) -> int {
        const auto give_up = [output](const std::string& why) { EndWith(output, why, kFailed); };
        // What is thrown on the bind thread nobody catches.
        static const auto uncaught = [&] {
          give_up("the library threw an exception on its thread, which ends init");
        };
        std::set_terminate([] { uncaught(); });
        Result<json> answer = PlayAndDigest(plan, had_proc, digest, *library, give_up);
        if (!answer.ok()) EndWith(output, answer.error().message(), kFailed);
        std::string bytes;
        json::to_cbor(*answer, bytes);
        EndWith(output, std::move(bytes), kDone);
      });
  if (!process.ok()) return process.error();
  return StartedBoot(std::move(*process));
}

Result<json> StartedBoot::Finish() {
  Result<std::string> text = process_.Read();
  if (!text.ok()) return text.error();
  const char mark = text->empty() ? '\0' : text->back();
  if (mark == kDone) return json::from_cbor(text->begin(), text->end() - 1);
  text->resize(text->empty() ? 0 : text->size() - 1);
  if (mark == kFailed) return Error() << *text;
  Result<int> status = process_.Wait();
  // Another process than the one that started it is not told how it ended.
  if (!status.ok() && status.error().code() != ECHILD) return status.error();
  return Error() << "the process of the boot left no outcome";
}

Result<json> RunBoot(const BootPlan& plan, const Digest& digest) {
  Result<StartedBoot> boot = StartedBoot::Start(plan, digest);
  if (!boot.ok()) return boot.error();
  return boot->Finish();
}

}  // namespace extprop
