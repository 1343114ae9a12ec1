#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <mutex>

#include <android-base/strings.h>

#include "host/sandbox/private_root.h"
#include "host/watch/platform_calls.h"
#include "tests/faults/sample_device.h"
#include "tests/faults/scenario.h"

// Runs the scenario once, then again once per fault: one platform call that fails or transfers less
// than asked for, in a process and a private root of its own. What does not depend on the failed
// call has to happen all the same, in the same order.

using android::base::EndsWith;
using android::base::StartsWith;
using watch::Call;

namespace {

struct SeenCall {
  Call call;
  std::string path;
  std::string step;
};

struct Fault {
  size_t index;  // of the call
  int error;
  bool IsTransient() const { return error == 0 || error == EINTR; }
};

// Keeps every call, notes what it changes, and lets the fault strike.
class FaultObserver : public watch::Observer {
 public:
  explicit FaultObserver(Fault fault) : fault_(fault) {}

  watch::Verdict Before(const watch::PlatformCall& call) override {
    std::lock_guard<std::mutex> guard(lock_);
    const size_t now = seen.size();
    const std::string& path = call.fd >= 0                  ? paths_[call.fd]
                              : call.call == Call::kReaddir ? directory_
                                                            : call.path;
    seen.push_back({call.call, path, CurrentStep()});
    // A transient fault strikes three times in a row: a retry may need another.
    const size_t strikes = fault_.IsTransient() ? 3 : 1;
    if (now < fault_.index || now - fault_.index >= strikes) return {};
    if (seen[fault_.index].call != call.call) return {};
    if (fault_.error == 0) return {false, 0, 1};
    return {true, fault_.error, 0};
  }

  void After(const watch::PlatformCall& call, long result, int /*error*/) override {
    std::lock_guard<std::mutex> guard(lock_);
    if (result < 0) return;
    if (call.call == Call::kOpen) paths_[static_cast<int>(result)] = call.path;
    if (call.call == Call::kOpendir) directory_ = call.path;
    if (call.call == Call::kMkdir || call.call == Call::kUnlink || call.call == Call::kMount ||
        (call.call == Call::kPropertySet && !StartsWith(call.path, "sys.cota."))) {
      Note(std::string(watch::CallName(call.call)) + " " + call.path + " " + call.source);
    }
  }

  std::vector<SeenCall> seen;

 private:
  const Fault fault_;
  std::mutex lock_;
  std::map<int, std::string> paths_;
  std::string directory_;
};

// 0 stands for a short transfer. A call that is not here fails with EIO.
const std::map<Call, std::vector<int>> kErrors = {
    {Call::kOpen, {EACCES, ENOSPC, EINTR}},  {Call::kRead, {EIO, EINTR, 0}},
    {Call::kWrite, {EIO, ENOSPC, EINTR, 0}}, {Call::kMkdir, {EACCES, ENOSPC}},
    {Call::kThreadCreate, {EAGAIN}},
};

// What depends on a file, a directory or a mount target, beside what names it: a note that holds
// one of `texts` may differ after a failed call on a path with this end, in a step with this name.
// An empty text stands for all that the step does.
struct Dependence {
  const char* step;
  const char* path_end;
  std::vector<const char*> texts;
};

const Dependence kDependences[] = {
    {"convert", "/vemrareserve/system", {"sys.sim.switch.first=", "SimSwitchFirstTime"}},
    {"convert", "/sim_switch_first_file", {"sim_switch_convert_file", "SimSwitchFirstTime"}},
    {"convert", "/sim_switch_first_file", {"sys.sim.switch.first="}},
    {"convert", "/sim_action_file", {"build.ab-cd.prop"}},
    // Not deleted, it is handed over once more, with what the restore handed over.
    {"convert", "/data_common_prop_file.prop", {"0 persist.sys.recopy.preload"}},
    {"replay", "/sim_switch_convert_file", {"0 sys.sim.switch.convert="}},
    {"replay", "/force_connect_internet_prop_file", {"ro.vemra.internet.force.connect"}},
    {"replay", "/flashback.cfg", {"ro.sys.customize.flashback.company"}},
    // It is handed over together with what was replayed before it.
    {"replay", "/data_common_prop_file.prop", {"empty_appchannel_prop_file"}},
    {"", "/data_common_prop_file.prop", {"persist.sys.channel.info", "switchCarrierChannel"}},
    {"", "/my_product/build.prop", {"/odm/etc/imported.prop"}},
    {"", "/image/build.prop", {"version_name", "date.utc", "custommedia", "/my_carrier/media"}},
    {"", "/image/build.prop", {"mediapath"}},
    {"", "/my_carrier/media", {"mediapath"}},
    {"", "/my_carrier", {"version_name", "date.utc", "exp.version"}},
    {"", "/my_module", {"module", "exp.version", "version_name"}},
    {"image", "/cota_mount_info.prop", {""}},
    {"thread", "/cota_mount_info.prop", {""}},
    {"update", "/cota_mount_info.prop", {""}},
    {"basic", "/cota_mount_info.prop", {"/mnt/cota/"}},
    {"basic", "/cota_module_info.prop", {"module", "exp.version", "version_name"}},
    {"module", "/cota_module_info.prop", {""}},
};

// Returns the path that the sample device's files name themselves by.
std::string OwnPath(const std::string& path) {
  // Whatever is on the way to the state files matters to them alone.
  if (EndsWith(path, "/")) return "/mnt/vendor/vemrareserve/system";
  if (path == "/my_carrier/media") return path;
  if (StartsWith(path, "/my_carrier/")) return "/data/cota/image" + path.substr(11);
  if (StartsWith(path, "/my_module/")) return "/data/cota/module" + path.substr(10);
  return path;
}

bool MayDiffer(const SeenCall& failed, const std::string& note) {
  const auto has = [&note](const std::string& text) {
    return note.find(text) != std::string::npos;
  };
  const bool same_step = StartsWith(note, "[" + failed.step + "]");
  const bool missing = failed.call == Call::kAccess;
  if (failed.call == Call::kFstat) return false;
  if (failed.call == Call::kThreadCreate) return StartsWith(note, "[thread]");
  // Without its info file a COTA operation does nothing.
  if (missing && EndsWith(failed.path, "_info.prop") && same_step) return true;
  // What could not be read is deleted all the same.
  if (has("] unlink") && !missing && failed.call != Call::kUnlink) return false;
  if (has("] hand-over")) {
    // A map that is left empty is handed over only where this is promised.
    const bool promised =
        has("[quasar]") || (has("[replay]") && EndsWith(failed.path, "file.prop"));
    return missing || !promised;
  }
  const std::string path = OwnPath(failed.path);
  if (failed.call == Call::kLchown) return has("] file " + path + " ");
  if (has(" " + path) || has("=" + path)) return true;
  for (const Dependence& dependence : kDependences) {
    if (failed.step.find(dependence.step) == std::string::npos) continue;
    if (!EndsWith(path, dependence.path_end)) continue;
    for (const char* text : dependence.texts) {
      if (*text == '\0' ? same_step : has(text)) return true;
    }
  }
  return false;
}

// Prints the first difference, if there is one.
bool Same(const std::vector<std::string>& wanted, const std::vector<std::string>& seen) {
  if (wanted == seen) return true;
  const size_t shorter = std::min(wanted.size(), seen.size());
  size_t i = 0;
  while (i < shorter && wanted[i] == seen[i]) ++i;
  const auto line = [i](const auto& notes) { return i < notes.size() ? notes[i].c_str() : "-"; };
  printf("  wanted: %s\n  seen:   %s\n", line(wanted), line(seen));
  return false;
}

// A key that was not kept must not count as converted.
bool IsConvertedOnlyWithKey(const std::vector<std::string>& notes) {
  std::string kept_in;  // the step, in which the first file comes later than the convert file
  for (auto note = notes.rbegin(); note != notes.rend(); ++note) {
    const std::string step = note->substr(0, note->find(']'));
    if (EndsWith(*note, "sys.sim.switch.first=westtel\n")) kept_in = step;
    const bool converted = note->find("file " + kSsv + "sim_switch_convert_file") != note->npos;
    if (converted && StartsWith(step, "[convert") && kept_in != step) return false;
  }
  return true;
}

long Descriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

std::vector<std::string> Run(FaultObserver* observer) {
  watch::SetObserver(observer);
  std::vector<std::string> notes = RunScenario();
  watch::SetObserver(nullptr);
  return notes;
}

// The process of one fault. Returns its exit status.
int RunWithFault(Fault fault, const SeenCall& failed, std::vector<std::string> clean) {
  alarm(20);
  const long descriptors = Descriptors();
  FaultObserver observer(fault);
  std::vector<std::string> notes = Run(&observer);
  if (!IsConvertedOnlyWithKey(notes)) {
    printf("  there is a convert file, but no first key\n");
    return EXIT_FAILURE;
  }
  if (!fault.IsTransient()) {
    for (std::vector<std::string>* list : {&clean, &notes}) {
      const auto may_differ = [&](const std::string& note) { return MayDiffer(failed, note); };
      list->erase(std::remove_if(list->begin(), list->end(), may_differ), list->end());
    }
  }
  if (!Same(clean, notes)) return EXIT_FAILURE;
  if (Descriptors() == descriptors) return EXIT_SUCCESS;
  printf("  a descriptor was left open\n");
  return EXIT_FAILURE;
}

}  // namespace

// An exception ends the program, and thereby fails the check.
int main() {  // NOLINT(bugprone-exception-escape)
  EnterTestRoot();
  FaultObserver counter({~size_t{0}, EIO});
  const std::vector<std::string> clean = Run(&counter);
  std::map<Call, int> counts;
  for (const SeenCall& call : counter.seen) ++counts[call.call];
  printf("%zu calls into the platform:", counter.seen.size());
  for (const auto& [call, count] : counts) printf(" %d %s", count, watch::CallName(call));
  printf("\n");

  int tried = 0;
  int broken = 0;
  for (size_t i = 0; i < counter.seen.size(); ++i) {
    const SeenCall& call = counter.seen[i];
    const auto errors = kErrors.find(call.call);
    for (int error : errors == kErrors.end() ? std::vector{EIO} : errors->second) {
      const auto status = sandbox::RunInPrivateRoot({}, [&] {
        return RunWithFault({i, error}, call, clean);
      });
      ++tried;
      if (status.ok() && *status == EXIT_SUCCESS) continue;
      ++broken;
      if (!status.ok()) printf("  %s\n", status.error().message().c_str());
      printf("BROKEN by %s of %s %s in the step \"%s\" (call %zu)\n",
             error == 0 ? "a short transfer" : strerrorname_np(error), watch::CallName(call.call),
             call.path.c_str(), call.step.c_str(), i);
    }
  }
  printf("%d faults tried, %d broke something\n", tried, broken);
  return broken == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
