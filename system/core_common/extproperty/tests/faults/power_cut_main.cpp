#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <android-base/strings.h>

#include "host/watch/platform_calls.h"
#include "tests/faults/sample_device.h"

// Ends a boot before, within and after every call that writes, boots twice more on what is left,
// and compares with what three undisturbed boots leave. Only what is listed may be lost, and only
// there.

using android::base::StartsWith;
using watch::Call;

namespace fs = std::filesystem;

namespace {

// What is lost from a cut on, until the next one in the list. A file counts as lost where its
// content is wrong, and where it is left over. What ends before the "=" of the first file is taken
// for a key in the old format.
const char kLostByConversion[] = R"(
after open first: convert, first, first's owner, none_clear, switch.convert, switch.first
1 into write first: convert, first, none_clear, switch.convert, switch.first wrong
21 into write first: convert, first, first's owner, none_clear, switch.convert, switch.first
22 into write first: convert, first, first's owner, none_clear, switch.convert, switch.first wrong
28 into write first: convert, first's owner, none_clear, switch.convert
after open convert: convert, convert's owner, first's owner, none_clear, switch.convert
28 into write convert: convert's owner, first's owner, none_clear
after open none_clear: convert's owner, first's owner, none_clear, none_clear's owner
after write none_clear: convert's owner, first's owner, none_clear's owner
after lchown first: convert's owner, none_clear's owner
after lchown none_clear: convert's owner
after lchown convert: nothing
before unlink empty_appchannel: data_common, empty_appchannel, persist.sys.channel.info
after unlink empty_appchannel: data_common, persist.sys.channel.info
after unlink data_common: nothing
)";
const char kLostByUpgrade[] = R"(
after open first: first, switch.first
1 into write first: first, switch.first wrong
21 into write first: first, switch.first
22 into write first: first, switch.first wrong
28 into write first: nothing
after open current: current, switch.current
1 into write current: current, switch.current wrong
23 into write current: current, switch.current
24 into write current: current, switch.current wrong
32 into write current: nothing
before unlink empty_appchannel: common, data_common, empty_appchannel, persist.sys.channel.info
after unlink empty_appchannel: common, data_common, persist.sys.channel.info
after unlink common: data_common, persist.sys.channel.info
after unlink data_common: nothing
)";

// The persistent properties that the host keeps.
const std::string kPersistent = "/host/persistent";

// Files and their owners by short names, and properties.
using State = std::map<std::string, std::string>;

struct WriteCall {
  std::string name;  // such as "open first"
  ssize_t count;     // of bytes
};

struct Cut {
  size_t call = ~size_t{0};  // counted from one
  ssize_t bytes = 0;  // that the call writes before the end; kBefore where it does not happen
};

constexpr ssize_t kBefore = -1;

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
    const bool writes = (call.call == Call::kOpen && (call.flags & O_ACCMODE) != O_RDONLY) ||
                        call.call == Call::kWrite || call.call == Call::kMkdir ||
                        call.call == Call::kUnlink || call.call == Call::kLchown;
    if (!writes) return {};
    if (call.call != Call::kWrite) name_ = ShortName(call.path);
    calls.push_back({watch::CallName(call.call) + (" " + name_), static_cast<ssize_t>(call.count)});
    if (!IsCut()) return {};
    if (cut_.bytes == kBefore) raise(SIGKILL);
    return {false, 0, static_cast<size_t>(cut_.bytes)};
  }

  void After(const watch::PlatformCall& /*call*/, long /*result*/, int /*error*/) override {
    if (IsCut()) raise(SIGKILL);
  }

  std::vector<WriteCall> calls;

 private:
  bool IsCut() const { return calls.size() == cut_.call; }

  const Cut cut_;
  std::string name_;  // of the file last opened
};

void Apply(int /*mode*/, PropertyMap map) {
  for (const auto& [name, value] : map) {
    device::ApplyProperty(name, value);
    if (!StartsWith(name, "persist.")) continue;
    std::ofstream(kPersistent, std::ios::app) << name << "=" << value << "\n";
  }
}

std::vector<WriteCall> Boot(Cut cut) {
  SetBootProperties(Device::Read(kPersistent));
  Service service;
  Cutter cutter(cut);
  watch::SetObserver(&cutter);
  service.loadPersistOverrideProperties(Apply);
  watch::SetObserver(nullptr);
  return cutter.calls;
}

void Prepare(bool upgrades) {
  for (const char* path : {"/mnt", "/data", "/host"}) fs::remove_all(path);
  WritePartitions();
  WriteFiles(kPersistent + ",persist.sys.channel.info=shop");
  WriteFiles("$common,persist.sys.channel.info=shop $channel");
  if (!upgrades) return;
  const std::string first = Long("$ssv/sim_switch_first_file");
  const std::string current = Long("$ssv/sim_switch_current_file");
  WriteFiles(first + ",westtel " + current + ",northcell $ssv/sim_switch_common_prop_file");
  for (const std::string& path : {first, current}) {
    if (lchown(path.c_str(), 1000, 1000) != 0) perror(path.c_str());
  }
}

State TakeState() {
  State state;
  for (const auto& [name, value] : device::AllProperties()) {
    // An empty property is as good as none. Which files were read follows from the keys.
    if (value.empty() || StartsWith(name, "sys.at.")) continue;
    state[android::base::StringReplace(name, "sys.sim.", "", false)] = value;
  }
  // No other value counts as converted.
  if (state["switch.convert"] != "true") state.erase("switch.convert");
  for (const auto& [path, about] : StateFiles()) {
    state[ShortName(path)] = android::base::Trim(about);
  }
  return state;
}

// Boots a device three times, the first time until the cut, and returns what is left.
State BootThrice(bool upgrades, Cut cut) {
  Prepare(upgrades);
  const pid_t child = fork();
  if (child == 0) {
    Boot(cut);
    _exit(EXIT_SUCCESS);
  }
  int status = -1;
  waitpid(child, &status, 0);
  Boot({});
  Boot({});
  State state = TakeState();
  if (status != (cut.call == Cut().call ? 0 : SIGKILL)) state["end of the first boot"] = "wrong";
  return state;
}

std::string Losses(const State& wanted, const State& seen) {
  std::vector<std::string> losses;
  State all = wanted;
  all.insert(seen.begin(), seen.end());
  for (const auto& [name, value] : all) {
    const bool everywhere = wanted.count(name) + seen.count(name) == 2;
    if (everywhere && seen.at(name) != wanted.at(name)) {
      losses.push_back(StartsWith(name, "switch.") ? name + " wrong" : name);
    } else if (!everywhere && !android::base::EndsWith(name, "'s owner")) {
      losses.push_back(name);
    }
  }
  return losses.empty() ? "nothing" : android::base::Join(losses, ", ");
}

// Returns whether the cuts of a boot lose what is listed.
bool RunCuts(const char* boot, bool upgrades, const std::string& listed) {
  const State undisturbed = BootThrice(upgrades, {});
  Prepare(upgrades);
  const std::vector<WriteCall> calls = Boot({});
  std::string lost = "\n", last = "nothing";
  int tried[] = {0, 0}, lossy[] = {0, 0};
  for (size_t i = 0; i < calls.size(); ++i) {
    const auto& [name, count] = calls[i];
    for (ssize_t bytes = kBefore; bytes <= count; ++bytes) {
      if (bytes == 0 && count > 0) continue;  // leaves what the cut before it leaves
      const bool within = bytes != kBefore && bytes < count;
      const std::string losses = Losses(undisturbed, BootThrice(upgrades, {i + 1, bytes}));
      ++tried[within];
      lossy[within] += losses != "nothing";
      if (losses == last) continue;
      lost += within ? std::to_string(bytes) + " into" : bytes == kBefore ? "before" : "after";
      lost += " " + name + ": " + losses + "\n";
      last = losses;
    }
  }
  printf(
      "%s: %zu calls that write; killed between two of them %d times, %d of these in a listed "
      "window; cut off within a write %d times, %d of these in a listed window\n",
      boot, calls.size(), tried[0], lossy[0], tried[1], lossy[1]);
  if (lost != listed) printf("BROKEN: the cuts do not lose what is listed but%s", lost.c_str());
  return lost == listed;
}

}  // namespace

// An exception ends the program, and thereby fails the check.
int main() {  // NOLINT(bugprone-exception-escape)
  EnterTestRoot();
  const bool conversion = RunCuts("conversion", false, kLostByConversion);
  const bool upgrade = RunCuts("upgrade", true, kLostByUpgrade);
  return conversion && upgrade ? EXIT_SUCCESS : EXIT_FAILURE;
}
