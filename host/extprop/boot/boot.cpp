#include "host/extprop/boot/boot.h"

#include <android-base/unique_fd.h>
#include <fcntl.h>
#include <malloc.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "host/extprop/boot/in_tree.h"
#include "host/extprop/boot/kept_tree.h"
#include "host/extprop/boot/library_functions.h"
#include "host/extprop/boot/pack.h"
#include "host/extprop/boot/recorder.h"
#include "host/platform/system_properties.h"
#include "host/sandbox/private_root.h"

namespace extprop {

namespace {

using android::base::Error;
using android::base::Result;
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
  const bool starts_thread =
      std::string(planned.loader->name) == "service" && planned.argument == "check_mount";
  if (starts_thread) WaitUntil([&] { return recorder->bind_thread() != thread_before; });
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
  Watchdog(std::chrono::seconds limit, Recorder* recorder, GiveUp give_up)
      : thread_([=] { Watch(limit, recorder, give_up); }) {}
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> guard(lock_);
      done_ = true;
    }
    condition_.notify_one();
    thread_.join();
  }

 private:
  void Watch(std::chrono::seconds limit, Recorder* recorder, GiveUp give_up) {
    std::unique_lock<std::mutex> guard(lock_);
    if (condition_.wait_for(guard, limit, [this] { return done_; })) return;
    const std::string file = recorder->WaitsFor();
    give_up("the boot has not ended after " + std::to_string(limit.count()) + " s" +
            (file.empty() ? "" : "; it waits for " + file));
  }

  std::mutex lock_;
  std::condition_variable condition_;
  bool done_ = false;
  std::thread thread_;
};

// The boot of this process, as far as it has got.
struct Begun {
  Recorder* recorder = nullptr;
  Factory factory = nullptr;
  android::init::IInitExtensionProperty* service = nullptr;
  size_t steps = 0;  // that were played
};
Begun begun;

void Begin(const BootPlan& plan, Factory factory) {
  umask(0);  // init has none
  // The process is short: what it frees the kernel would only have to clear again.
  mallopt(M_TRIM_THRESHOLD, kEnough);
  mallopt(M_MMAP_THRESHOLD, kEnough);
  mallopt(M_TOP_PAD, kHeapStep);
  begun = {Recorder::Start(plan.properties, FindLibraryFunctions(factory)), factory,
           factory(kLibraryName), 0};
  if (plan.lines) begun.recorder->WatchLines();
}

bool FillsMap(const PlannedStep& step) {
  return step.loader != nullptr && step.loader->fills_map;
}

// Plays the steps that are left of the first `count`; with the last, the boot is over.
void Play(const BootPlan& plan, size_t count) {
  Recorder* recorder = begun.recorder;
  while (begun.steps < count) {
    const PlannedStep& planned = plan.steps[begun.steps];
    // init loads them after the partitions, before anything else.
    if (begun.steps > 0 && !FillsMap(planned)) recorder->LoadStored();
    recorder->BeginStep(Describe(planned));
    if (!FillsMap(planned)) recorder->LoadStored();
    Result<void> done = planned.loader == nullptr ? Post(planned.argument, recorder)
                                                  : Call(planned, begun.service, recorder);
    ++begun.steps;
    if (done.ok()) continue;
    recorder->FailStep(done.error().message());
    begun.steps = plan.steps.size();
  }
  if (begun.steps > 0 && begun.steps == plan.steps.size()) recorder->LoadStored();
}

}  // namespace

BootRecord PlayHost(const BootPlan& plan, Factory factory, GiveUp give_up) {
  if (begun.recorder == nullptr) {
    Begin(plan, factory);
  } else {
    begun.recorder->GoOn(plan.properties);
  }
  const Watchdog watchdog(plan.timeout, begun.recorder, give_up);
  Play(plan, plan.steps.size());
  return begun.recorder->Finish();
}

bool PlayFirstSteps(BootPlan* plan) {
  const auto first_other = std::find_if(plan->steps.begin(), plan->steps.end(),
                                        [](const PlannedStep& step) { return !FillsMap(step); });
  Result<Factory> factory = LoadLibrary(plan->library);
  if (first_other == plan->steps.begin() || !factory.ok() || geteuid() != 0) return false;
  // To where the tree is, for the roots of the boots to come.
  unique_fd home(open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC));
  if (home < 0 || unshare(CLONE_NEWNS) != 0 || setns(home, CLONE_NEWNS) != 0) return false;
  Result<void> entered = sandbox::EnterPrivateRoot(plan->device.root);
  const auto end = [](const std::string& error) {
    fprintf(stderr, "extprop: %s\n", error.c_str());
    _exit(EXIT_FAILURE);
  };
  if (!entered.ok()) end(entered.error().message());
  Begin(*plan, *factory);
  const Watchdog watchdog(plan->timeout, begun.recorder, end);
  Play(*plan, static_cast<size_t>(first_other - plan->steps.begin()));
  plan->device.root.mount_namespace = home.release();
  return true;
}

Result<std::string> RunBootFor(const BootPlan& plan,
                               const std::function<std::string(const BootRecord&)>& digest) {
  // Before the private root hides it.
  Result<Factory> factory =
      begun.recorder == nullptr ? LoadLibrary(plan.library) : Result<Factory>(begun.factory);
  if (!factory.ok()) return factory.error();
  if (plan.lines && FindLibraryFunctions(*factory).KSSI_OBSERVE_PropertyFiles == nullptr) {
    return Error() << "this library does not tell the lines that it reads";
  }
  const bool had_proc = access((plan.tree + "/proc").c_str(), F_OK) == 0;
  return RunInTree(plan.device, [&]() -> Result<std::string> {
    if (plan.prepare) plan.prepare();
    // Never freed, as the process is about to end.
    const auto* played = new BootRecord(PlayHost(plan, *factory, EndChild));
    Result<void> kept;
    if (plan.keep_fd >= 0) kept = KeepTree(plan.keep_fd, had_proc, *played);
    if (!kept.ok()) return Error() << "cannot keep the resulting tree: " << kept.error();
    return digest(*played);
  });
}

Result<BootRecord> RunBoot(const BootPlan& plan) {
  Result<std::string> record = RunBootFor(plan, Pack<BootRecord>);
  if (!record.ok()) return record.error();
  return Unpack<BootRecord>(*record);
}

}  // namespace extprop
