#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include <android-base/strings.h>

#include "host/sandbox/private_root.h"
#include "host/watch/platform_calls.h"
#include "tests/faults/sample_device.h"

// Ends a boot before, within and after every call that writes, boots twice more on what is left,
// and compares with what three undisturbed boots leave. Only what the table of windows lists may be
// lost, and only there.

using android::base::StartsWith;
using watch::Call;

namespace fs = std::filesystem;

namespace {

// From the cut `from` on until before the cut `to`, `loss` is lost in the boot `boot`, or in both.
// A file counts as lost where its content is wrong, and where it is left over.
struct Window {
  const char* boot;
  const char* loss;
  const char* from;
  const char* to;
};

const char kConversion[] = "conversion";
const char kUpgrade[] = "upgrade";
const char kBoth[] = "";

const Window kWindows[] = {
    {kBoth, "sys.sim.switch.first", "after open first", "1 into write first"},
    // What ends before the "=" is taken for a key in the old format.
    {kBoth, "sys.sim.switch.first wrong", "1 into write first", "21 into write first"},
    {kBoth, "sys.sim.switch.first", "21 into write first", "22 into write first"},
    {kBoth, "sys.sim.switch.first wrong", "22 into write first", "28 into write first"},
    {kBoth, "first", "after open first", "28 into write first"},
    {kConversion, "owner of first", "after open first", "1 into write first"},
    {kConversion, "owner of first", "21 into write first", "after lchown first"},
    {kConversion, "convert", "after open first", "28 into write convert"},
    {kConversion, "sys.sim.switch.convert", "after open first", "28 into write convert"},
    {kConversion, "owner of convert", "after open convert", "after lchown convert"},
    {kConversion, "none_clear", "after open first", "after write none_clear"},
    {kConversion, "owner of none_clear", "after open none_clear", "after lchown none_clear"},
    {kUpgrade, "sys.sim.switch.current", "after open current", "1 into write current"},
    {kUpgrade, "sys.sim.switch.current wrong", "1 into write current", "23 into write current"},
    {kUpgrade, "sys.sim.switch.current", "23 into write current", "24 into write current"},
    {kUpgrade, "sys.sim.switch.current wrong", "24 into write current", "32 into write current"},
    {kUpgrade, "current", "after open current", "32 into write current"},
    {kBoth, "empty_appchannel", "before unlink empty_appchannel", "after unlink empty_appchannel"},
    {kUpgrade, "common", "before unlink empty_appchannel", "after unlink common"},
    {kBoth, "data_common", "before unlink empty_appchannel", "after unlink data_common"},
    {kBoth, "persist.sys.channel.info", "before unlink empty_appchannel",
     "after unlink data_common"},
};

// What the host keeps: its persistent properties, and what the last boot was handed.
const std::string kPersistent = "/host/persistent";
const std::string kHandedOver = "/host/handed_over";

using Names = std::set<std::string>;
// Files by their short names, their modes and owners, and properties.
using State = std::map<std::string, std::string>;

struct WriteCall {
  std::string name;  // such as "open first"
  size_t count;
};

struct Cut {
  enum Moment { kNever, kBefore, kWithin, kAfter } moment = kNever;
  size_t index = 0;  // of the call
  size_t bytes = 0;  // written by a call that is cut off within
};

std::string ShortName(const std::string& path) {
  std::string name = fs::path(path).filename();
  for (const char* common : {"sim_switch_", "first_switch_", ".prop", "_prop", "_file"}) {
    name = android::base::StringReplace(name, common, "", false);
  }
  return name;
}

class Cutter : public watch::Observer {
 public:
  explicit Cutter(Cut cut) : cut_(cut) {}

  watch::Verdict Before(const watch::PlatformCall& call) override {
    if (!Writes(call)) return {};
    if (call.call != Call::kWrite) name_ = ShortName(call.path);
    calls.push_back({std::string(watch::CallName(call.call)) + " " + name_, call.count});
    if (IsAt(Cut::kBefore)) raise(SIGKILL);
    return {false, 0, IsAt(Cut::kWithin) ? cut_.bytes : call.count};
  }

  void After(const watch::PlatformCall& call, long /*result*/, int /*error*/) override {
    if (Writes(call) && (IsAt(Cut::kWithin) || IsAt(Cut::kAfter))) raise(SIGKILL);
  }

  std::vector<WriteCall> calls;

 private:
  static bool Writes(const watch::PlatformCall& call) {
    return (call.call == Call::kOpen && (call.flags & O_ACCMODE) != O_RDONLY) ||
           call.call == Call::kWrite || call.call == Call::kMkdir || call.call == Call::kUnlink ||
           call.call == Call::kLchown;
  }

  bool IsAt(Cut::Moment moment) const {
    return cut_.moment == moment && calls.size() == cut_.index + 1;
  }

  const Cut cut_;
  std::string name_;  // of the file last opened
};

PropertyMap ReadProperties(const std::string& path) {
  PropertyMap properties;
  std::ifstream file(path);
  for (std::string name, value; std::getline(file, name, '=') && std::getline(file, value);) {
    properties[name] = value;
  }
  return properties;
}

void Apply(int /*mode*/, PropertyMap map) {
  for (const auto& [name, value] : map) {
    device::ApplyProperty(name, value);
    const std::string& file = StartsWith(name, "persist.") ? kPersistent : kHandedOver;
    std::ofstream(file, std::ios::app) << name << "=" << value << "\n";
  }
}

std::vector<WriteCall> Boot(Cut cut) {
  fs::remove(kHandedOver);
  SetBootProperties(ReadProperties(kPersistent));
  Service service;
  Cutter cutter(cut);
  watch::SetObserver(&cutter);
  service.loadPersistOverrideProperties(Apply);
  watch::SetObserver(nullptr);
  return cutter.calls;
}

// Returns the wait status of a boot in a process of its own.
int BootInProcess(Cut cut) {
  const pid_t child = fork();
  if (child == 0) {
    Boot(cut);
    _exit(EXIT_SUCCESS);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

void Prepare(const std::string& boot) {
  WritePartitions();
  WriteFiles({{kPersistent, "persist.sys.channel.info=shop\n"},
              {kCustomize + "data_common_prop_file.prop", "persist.sys.channel.info=shop\n"},
              {kCustomize + "empty_appchannel_prop_file.prop", ""}});
  if (boot == kConversion) return;
  WriteFiles({{kSsv + "sim_switch_first_file", "westtel"},
              {kSsv + "sim_switch_current_file", "northcell"},
              {kSsv + "sim_switch_common_prop_file", ""}});
  for (const std::string name : {"sim_switch_first_file", "sim_switch_current_file"}) {
    if (lchown((kSsv + name).c_str(), 1000, 1000) != 0) perror(name.c_str());
  }
}

State TakeState() {
  State state;
  for (const std::string& path : {kPersistent, kHandedOver}) {
    for (const auto& [name, value] : ReadProperties(path)) {
      // An empty property is as good as none. Which files were read follows from the keys.
      if (!value.empty() && !StartsWith(name, "sys.at.")) state[name] = value;
    }
  }
  // No other value counts as converted.
  if (state["sys.sim.switch.convert"] != "true") state.erase("sys.sim.switch.convert");
  for (const auto& [path, about] : StateFiles()) {
    const size_t content = std::min(about.find(' ', about.find(' ') + 1), about.size());
    state[ShortName(path)] = android::base::Trim(about.substr(content));
    state["owner of " + ShortName(path)] = about.substr(0, content);
  }
  return state;
}

Names Losses(const State& wanted, const State& seen) {
  Names losses;
  State all = wanted;
  all.insert(seen.begin(), seen.end());
  for (const auto& [name, value] : all) {
    const bool everywhere = wanted.count(name) + seen.count(name) == 2;
    if (everywhere && seen.at(name) != wanted.at(name)) {
      losses.insert(StartsWith(name, "sys.") ? name + " wrong" : name);
    } else if (!everywhere && !StartsWith(name, "owner of ")) {
      losses.insert(name);
    }
  }
  return losses;
}

// The process of one cut. Returns its exit status.
int RunWithCut(const std::string& boot, Cut cut, const State& undisturbed, const Names& expected) {
  Prepare(boot);
  if (!WIFSIGNALED(BootInProcess(cut)) || BootInProcess({}) != 0 || BootInProcess({}) != 0) {
    printf("  a boot did not end as it should\n");
    return EXIT_FAILURE;
  }
  const Names losses = Losses(undisturbed, TakeState());
  if (losses == expected) return EXIT_SUCCESS;
  printf("  listed: %s\n  lost:   %s\n", android::base::Join(expected, ", ").c_str(),
         android::base::Join(losses, ", ").c_str());
  return EXIT_FAILURE;
}

// Goes through the cuts of a boot in order, and through the windows with them. Returns the number
// of cuts that lose something else than listed.
int RunCuts(const std::string& boot) {
  for (const char* path : {"/mnt", "/data", "/host"}) fs::remove_all(path);
  Prepare(boot);
  const std::vector<WriteCall> calls = Boot({});
  Boot({});
  Boot({});
  const State undisturbed = TakeState();
  Names expected;
  int tried[] = {0, 0};
  int lossy[] = {0, 0};
  int broken = 0;
  const auto run = [&](Cut cut, const std::string& when) {
    const std::string label = when + " " + calls[cut.index].name;
    const auto is_in = [&boot](const Window& w) { return w.boot == kBoth || w.boot == boot; };
    for (const Window& window : kWindows) {
      if (is_in(window) && label == window.to) expected.erase(window.loss);
    }
    for (const Window& window : kWindows) {
      if (is_in(window) && label == window.from) expected.insert(window.loss);
    }
    const auto status =
        sandbox::RunInPrivateRoot({}, [&] { return RunWithCut(boot, cut, undisturbed, expected); });
    ++tried[cut.moment == Cut::kWithin];
    lossy[cut.moment == Cut::kWithin] += !expected.empty();
    if (status.ok() && *status == EXIT_SUCCESS) return;
    ++broken;
    printf("BROKEN by the %s cut %s\n", boot.c_str(), label.c_str());
  };
  for (size_t i = 0; i < calls.size(); ++i) {
    run({Cut::kBefore, i}, "before");
    for (size_t bytes = 1; bytes < calls[i].count; ++bytes) {
      run({Cut::kWithin, i, bytes}, std::to_string(bytes) + " into");
    }
    run({Cut::kAfter, i}, "after");
  }
  printf(
      "%s: %zu calls that write; killed between two of them %d times, %d of these in a listed "
      "window; cut off within a write %d times, %d of these in a listed window; %d cuts lose "
      "something else than listed\n",
      boot.c_str(), calls.size(), tried[0], lossy[0], tried[1], lossy[1], broken);
  return broken;
}

}  // namespace

// An exception ends the program, and thereby fails the check.
int main() {  // NOLINT(bugprone-exception-escape)
  EnterTestRoot();
  const int broken = RunCuts(kConversion) + RunCuts(kUpgrade);
  return broken == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
