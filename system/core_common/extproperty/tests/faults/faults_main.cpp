#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

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
    if (call.call == Call::kOpen) file_ = call.path;
    if (call.call == Call::kOpendir) directory_ = call.path;
    const bool reads_directory = call.call == Call::kReaddir;
    const size_t now = seen.size();
    const std::string& path = call.fd >= 0 ? file_ : reads_directory ? directory_ : call.path;
    seen.push_back({call.call, path, CurrentStep()});
    // A transient fault strikes three times in a row: a retry may need another.
    const size_t strikes = fault_.IsTransient() ? 3 : 1;
    if (now < fault_.index || now - fault_.index >= strikes) return {};
    if (seen[fault_.index].call != call.call) return {};
    return {fault_.error != 0, fault_.error, 1};
  }

  void After(const watch::PlatformCall& call, long result, int /*error*/) override {
    if (result < 0) return;
    if (call.call == Call::kMkdir || call.call == Call::kUnlink || call.call == Call::kMount ||
        (call.call == Call::kPropertySet && !StartsWith(call.path, "sys.cota."))) {
      Note(std::string(watch::CallName(call.call)) + " " + call.path + " " + call.source);
    }
  }

  std::vector<SeenCall> seen;

 private:
  const Fault fault_;
  std::string file_;  // last opened, as is the next: no file is opened before the last one is read
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
  const char* texts;  // separated by "|"
};

const Dependence kDependences[] = {
    {"convert", "/vemrareserve/system", "sys.sim.switch.first=|SimSwitchFirstTime"},
    {"convert", "/sim_switch_first_file", "sys.sim.switch.first=|SimSwitchFirstTime|convert_file"},
    {"convert", "/sim_action_file", "build.ab-cd.prop"},
    // Not deleted, it is handed over once more, with what the restore handed over.
    {"convert", "/data_common_prop_file.prop", "0 persist.sys.recopy.preload"},
    {"replay", "/sim_switch_convert_file", "0 sys.sim.switch.convert="},
    {"replay", "/force_connect_internet_prop_file", "ro.vemra.internet.force.connect"},
    {"replay", "/flashback.cfg", "ro.sys.customize.flashback.company"},
    // It is handed over together with what was replayed before it.
    {"replay", "/data_common_prop_file.prop", "empty_appchannel_prop_file"},
    {"", "/data_common_prop_file.prop", "persist.sys.channel.info|switchCarrierChannel"},
    {"", "/my_product/build.prop", "/odm/etc/imported.prop"},
    {"", "/image/build.prop", "version_name|date.utc|custommedia|mediapath|/my_carrier/media"},
    {"", "/my_carrier/media", "mediapath"},
    {"", "/my_carrier", "version_name|date.utc|exp.version"},
    {"", "/my_module", "version_name|module|exp.version"},
    {"image", "/cota_mount_info.prop", ""},
    {"basic", "/cota_mount_info.prop", "/mnt/cota/"},
    {"basic", "/cota_module_info.prop", "version_name|module|exp.version"},
    {"module", "/cota_module_info.prop", ""},
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
  const auto has = [&note](const std::string& text) { return note.find(text) != note.npos; };
  const bool same_step = StartsWith(note, "[" + failed.step + "]");
  const bool missing = failed.call == Call::kAccess;
  if (failed.call == Call::kThreadCreate) return same_step;
  // Without its info file a COTA operation does nothing.
  if (missing && EndsWith(failed.path, "_info.prop") && same_step) return true;
  // What could not be read is deleted all the same.
  if (has("] unlink") && !missing && failed.call != Call::kUnlink) return false;
  if (has("] hand-over")) {
    // A map that is left empty is handed over only where this is promised.
    const bool is_replayed = has("[replay]") && EndsWith(failed.path, "file.prop");
    return missing || !(has("[quasar]") || is_replayed);
  }
  const std::string path = OwnPath(failed.path);
  if (failed.call == Call::kLchown) return has("] file " + path + "'s owner ");
  if (has(" " + path) || has("=" + path)) return true;
  for (const Dependence& dependence : kDependences) {
    if (failed.step.find(dependence.step) == std::string::npos) continue;
    if (!EndsWith(path, dependence.path_end)) continue;
    for (const std::string& text : android::base::Split(dependence.texts, "|")) {
      if (text.empty() ? same_step : has(text)) return true;
    }
  }
  return false;
}

// The process of one fault. Returns its exit status.
int RunWithFault(Fault fault, const SeenCall& failed, std::vector<std::string> clean) {
  alarm(20);
  const long descriptors = Entries("/proc/self/fd");
  FaultObserver observer(fault);
  std::vector<std::string> notes = RunScenario(&observer);
  if (!fault.IsTransient() && failed.call != Call::kFstat) {
    for (std::vector<std::string>* list : {&clean, &notes}) {
      const auto may_differ = [&](const std::string& note) { return MayDiffer(failed, note); };
      list->erase(std::remove_if(list->begin(), list->end(), may_differ), list->end());
    }
  }
  if (Entries("/proc/self/fd") != descriptors) notes.push_back("a descriptor was left open");
  if (notes == clean) return EXIT_SUCCESS;
  clean.push_back("the end");
  notes.push_back("the end");
  const auto [wanted, seen] = std::mismatch(clean.begin(), clean.end(), notes.begin(), notes.end());
  printf("  wanted: %s\n  seen:   %s\n", wanted->c_str(), seen->c_str());
  return EXIT_FAILURE;
}

}  // namespace

// An exception ends the program, and thereby fails the check.
int main() {  // NOLINT(bugprone-exception-escape)
  EnterTestRoot();
  FaultObserver counter({~size_t{0}, EIO});
  const std::vector<std::string> clean = RunScenario(&counter);
  std::map<Call, int> counts;
  for (const SeenCall& call : counter.seen) ++counts[call.call];
  printf("%zu calls into the platform:", counter.seen.size());
  for (const auto& [call, count] : counts) printf(" %d %s", count, watch::CallName(call));
  printf("\n");

  int tried = 0, broken = 0;
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
