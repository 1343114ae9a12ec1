#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <set>
#include <system_error>
#include <vector>

#include <android-base/logging.h>
#include <android-base/strings.h>

#include "host/sandbox/private_root.h"
#include "tests/device_test.h"
#include "utils/property_file_parser.h"

// Plays each boot of the sample device once undisturbed, then once per fault: one platform call
// that fails or transfers less than asked for, or at which the process is ended. Every boot has to
// end by itself (or by that cut), without a signal, an exception or a descriptor left open; every
// state file has to hold its old content or its new one, except in the windows of IsWindow().

using android::init::PropertyApplyCallback;
using watch::Call;

namespace {

// One boot of the sample device of examples/. Together, the boots run every loader.
struct Boot {
  const char* name;
  void (*prepare)();  // completes the device
  void (*run)(InitExtensionPropertyImpl* service, PropertyApplyCallback cb);
};

// Opened before a private root hides it.
const std::string kSample =
    "/proc/self/fd/" + std::to_string(open(SAMPLE_DEVICE, O_PATH | O_DIRECTORY | O_CLOEXEC)) + "/";

void CopyToRoot(const std::string& directory) {
  fs::copy(kSample + directory, "/",
           fs::copy_options::recursive | fs::copy_options::overwrite_existing);
}

void RunPersistLoader(InitExtensionPropertyImpl* service, PropertyApplyCallback cb) {
  service->loadPersistOverrideProperties(cb);
}

void RunAllButCota(InitExtensionPropertyImpl* service, PropertyApplyCallback cb) {
  service->loadPersistOverrideProperties(cb);
  service->loadSimSwitchOverrideProperties(cb);
  service->loadSimSwitchOverrideProperties("updateDataCommonProp", cb);
  service->loadSimSwitchOverrideProperties("switchCarrierChannel", cb);
  service->loadQuasarOverrideProperties(cb);
}

void RunCota(InitExtensionPropertyImpl* service, PropertyApplyCallback cb) {
  service->loadCotaServiceOverrideProperties("mount_and_check_load", cb);
  CopyToRoot("variants/basic_points");
  service->loadCotaServiceOverrideProperties("bind_basic_point", cb);
  CopyToRoot("variants/company_image");
  service->loadCotaServiceOverrideProperties("update_cota_info", cb);
  service->loadCotaOverrideProperties(cb);
  const long threads = CountEntries("/proc/self/task");
  Set("sys.cota.bind.load.properties=boot_mount_bind_complete");
  try {
    service->loadCotaServiceOverrideProperties("check_mount", cb);
  } catch (const std::system_error&) {  // the platform refused the thread
  }
  while (CountEntries("/proc/self/task") != threads) usleep(100);
}

const Boot kBoots[] = {
    {"no reserve area", [] { fs::remove_all("/mnt/vendor/vemrareserve"); }, RunPersistLoader},
    {"conversion", [] { CopyToRoot("variants/ssv_key"); }, RunPersistLoader},
    {"upgrade", [] { CopyToRoot("variants/old_state_files"); }, RunAllButCota},
    {"overlay", [] { fs::remove_all("/mnt/cota/westtel_config"); }, RunCota},
};

void Prepare(const Boot& boot) {
  ClearDevice();
  CopyToRoot("root");
  // What leads to the keys is there twice: one copy that cannot be read changes nothing.
  Write("/dev/block/bootdevice/by-name/reserve_exp1", Read(kNvConfig));
  Write("/mnt/vendor/my_region/etc/nvmap.prop", Read("/mnt/vendor/my_carrier/etc/nvmap.prop"));
  boot.prepare();
  PropertyMap properties;
  android::init::load_properties_from_file_without_se((kSample + "device.prop").c_str(), nullptr,
                                                      &properties);
  for (const auto& [name, value] : properties) device::ApplyProperty(name, value);
}

enum class Kind { kFailure, kShortTransfer, kCutBefore, kCutWithin, kCutAfter };

struct Fault {
  size_t call = ~size_t{0};  // its index
  Kind kind = Kind::kFailure;
  int error = 0;  // of a failed call

  bool IsCut() const { return kind >= Kind::kCutBefore; }
  bool IsTransient() const { return kind == Kind::kShortTransfer || error == EINTR; }
};

// Keeps the calls that the library makes, and lets the fault strike.
class FaultObserver : public watch::Observer {
 public:
  explicit FaultObserver(Fault fault) : fault_(fault) {}

  watch::Verdict Before(const watch::PlatformCall& call) override {
    if (call.call == Call::kOpen) file_ = call.path;
    const size_t now = calls.size();
    calls.push_back(call);
    if (call.fd >= 0) calls.back().path = file_;
    // A transient fault strikes three times in a row: a retry may need another.
    const size_t strikes = fault_.IsTransient() ? 3 : 1;
    if (now < fault_.call || now - fault_.call >= strikes) return {};
    if (call.call != calls[fault_.call].call) return {};
    if (fault_.kind == Kind::kCutBefore) raise(SIGKILL);
    const bool is_part = fault_.kind == Kind::kShortTransfer || fault_.kind == Kind::kCutWithin;
    return {fault_.kind == Kind::kFailure, fault_.error, is_part ? 1 : ~size_t{0}};
  }

  void After(const watch::PlatformCall& /*call*/, long /*result*/, int /*error*/) override {
    if (fault_.IsCut() && calls.size() - 1 == fault_.call) raise(SIGKILL);
  }

  std::vector<watch::PlatformCall> calls;

 private:
  const Fault fault_;
  std::string file_;  // last opened: none is opened before the last one is read or written
};

using Files = std::map<std::string, std::string>;  // content by path

Files StateFiles() {
  Files files;
  for (const char* root : {"/mnt/vendor/vemrareserve", "/data/system"}) {
    if (!fs::exists(root)) continue;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
      if (entry.is_regular_file()) files[entry.path()] = Read(entry.path());
    }
  }
  return files;
}

std::string ContentIn(const Files& files, const std::string& path) {
  const auto file = files.find(path);
  return file == files.end() ? "missing" : file->second;
}

std::vector<watch::PlatformCall> RunInThisProcess(const Boot& boot, Fault fault) {
  InitExtensionPropertyImpl service;
  FaultObserver observer(fault);
  watch::SetObserver(&observer);
  boot.run(&service, [](int mode, PropertyMap map) {
    Apply(mode, map);
    std::ofstream("/handed_over", std::ios::app) << mode << " " << Text(map) << "\n";
  });
  watch::SetObserver(nullptr);
  return observer.calls;
}

struct Outcome {
  int status = 0;  // as wait(2) tells it
  std::string handed_over;
  Files old_files, files;
};

Outcome Play(const Boot& boot, Fault fault) {
  Prepare(boot);
  Outcome outcome;
  outcome.old_files = StateFiles();
  const pid_t child = fork();
  if (child == 0) {
    alarm(20);
    const long descriptors = CountEntries("/proc/self/fd");
    RunInThisProcess(boot, fault);
    _exit(CountEntries("/proc/self/fd") == descriptors ? EXIT_SUCCESS : EXIT_FAILURE);
  }
  CHECK_EQ(waitpid(child, &outcome.status, 0), child);
  outcome.handed_over = Read("/handed_over");
  outcome.files = StateFiles();
  return outcome;
}

std::vector<Fault> FaultsOf(size_t index, const watch::PlatformCall& call) {
  std::vector<Fault> faults = {{index, Kind::kFailure, EIO}};
  const bool transfers = call.call == Call::kRead || call.call == Call::kWrite;
  if (transfers) faults.push_back({index, Kind::kShortTransfer});
  if (transfers || call.call == Call::kOpen) faults.push_back({index, Kind::kFailure, EINTR});
  const bool writes = call.call == Call::kWrite || call.call == Call::kMkdir ||
                      call.call == Call::kUnlink || call.call == Call::kLchown ||
                      (call.call == Call::kOpen && (call.flags & O_ACCMODE) != O_RDONLY);
  if (!writes) return faults;
  faults.push_back({index, Kind::kCutBefore});
  if (call.count > 1) faults.push_back({index, Kind::kCutWithin});
  faults.push_back({index, Kind::kCutAfter});
  return faults;
}

// State files are truncated and written in place: from the "open" to the end of the "write" of one,
// a cut leaves the start of the new content. So does a write that fails, except that the conversion
// removes a first file that it could not write whole.
bool IsWindow(Fault fault, const watch::PlatformCall& call, const std::string& path, bool created) {
  const std::set<std::string> written = {kFirstFile, kCurrentFile, kConvertFile, kNoneClearMarker,
                                         kForceConnectFile};
  const bool leaves_part = fault.IsCut() || !created || path != kFirstFile;
  return call.path == path && written.count(path) != 0 && leaves_part;
}

// Returns what is wrong first, the empty string where nothing is.
std::string Problem(Fault fault, const watch::PlatformCall& call, const Outcome& undisturbed,
                    const Outcome& seen) {
  if (seen.status != (fault.IsCut() ? SIGKILL : EXIT_SUCCESS)) {
    return "ended with status " + std::to_string(seen.status);
  }
  Files all = seen.old_files;
  all.insert(undisturbed.files.begin(), undisturbed.files.end());
  all.insert(seen.files.begin(), seen.files.end());
  for (const auto& [path, any] : all) {
    const std::string content = ContentIn(seen.files, path);
    const std::string old_content = ContentIn(seen.old_files, path);
    const std::string new_content = ContentIn(undisturbed.files, path);
    const bool is_part = android::base::StartsWith(new_content, content) &&
                         IsWindow(fault, call, path, old_content == "missing");
    if (content != old_content && content != new_content && !is_part) {
      return path + " holds \"" + content + "\"";
    }
  }
  // What the library asks of a file's size beforehand only saves memory.
  const bool changes_nothing = fault.IsTransient() || call.call == Call::kFstat;
  const bool same = seen.handed_over == undisturbed.handed_over && seen.files == undisturbed.files;
  return changes_nothing && !same ? "hands over or leaves something else than undisturbed" : "";
}

// Returns the number of faults that break something.
int Sweep(const Boot& boot) {
  const Outcome undisturbed = Play(boot, {});
  CHECK_EQ(undisturbed.status, EXIT_SUCCESS) << boot.name;
  Prepare(boot);
  const std::vector<watch::PlatformCall> calls = RunInThisProcess(boot, {});
  int tried = 0, broken = 0;
  for (size_t i = 0; i < calls.size(); ++i) {
    for (const Fault& fault : FaultsOf(i, calls[i])) {
      const std::string problem = Problem(fault, calls[i], undisturbed, Play(boot, fault));
      ++tried;
      broken += !problem.empty();
      if (problem.empty()) continue;
      printf("%s, fault %d (error %d) of %s %s: %s\n", boot.name, static_cast<int>(fault.kind),
             fault.error, watch::CallName(calls[i].call), calls[i].path.c_str(), problem.c_str());
    }
  }
  printf("%s: %zu calls into the platform, %d faults, %d broke something\n", boot.name,
         calls.size(), tried, broken);
  return broken;
}

}  // namespace

// An exception ends the program, and thereby fails the check.
int main() {  // NOLINT(bugprone-exception-escape)
  CHECK_EQ(geteuid(), 0u) << "gives files to other users: run as root";
  const auto entered = sandbox::EnterPrivateRoot({});
  CHECK(entered.ok()) << "needs a private root: " << entered.error().message();
  android::base::SetLogger([](auto...) {});
  int broken = 0;
  for (const Boot& boot : kBoots) broken += Sweep(boot);
  return broken == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
