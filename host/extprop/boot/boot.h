#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/boot/library.h"
#include "host/extprop/boot/loaders.h"
#include "host/extprop/trees/device_tree.h"
#include "host/extprop/vocabulary.h"
#include "host/sandbox/private_root.h"

namespace extprop {

// One step to take: a call of `loader`, or a post of the word `argument` if `loader` is null.
struct PlannedStep {
  const Loader* loader = nullptr;
  std::string argument;
};

// Returns whether the step starts the bind thread, which serves what is posted.
bool StartsThread(const PlannedStep& step);

struct BootPlan {
  DeviceTree device;                // never changed
  std::string library;              // the path of libextproperty.so; empty to find it
  std::vector<std::string> inputs;  // the files that it was made from, beside the tree
  Properties properties;
  std::vector<PlannedStep> steps;
  // Changes the device's files before the boot, in the private root only; may throw.
  std::function<void()> prepare;
  std::map<std::string, std::string> chosen;  // as of the record
  bool lines = false;                         // record the lines of property files
  // Keeps the lines out of the record for whose names it returns false; null keeps all.
  std::function<bool(const std::string& name)> keep_line;
  bool opens_fifos = true;  // as on the device, where that may take for ever; else it fails
  std::chrono::seconds timeout = std::chrono::seconds(30);
  std::string title = "the boot";  // in the message where it takes longer
  // An empty directory that receives the resulting tree (kept_tree.h) of a boot that is completed;
  // not owned, -1 for none.
  int keep_fd = -1;
};

// What is asked of a boot: is called where its record is, in the process of the boot and in its
// private root, as the boot left it. May throw.
using Digest = std::function<json(const BootRecord& record)>;

// A boot that goes on in a process of its own.
class StartedBoot {
 public:
  // Plays the host in a private root made from the plan's tree. A step that could not be completed
  // has its `error` set and is the record's last one. Fails if the library cannot be loaded or
  // cannot tell the lines that the plan asks for.
  static Result<StartedBoot> Start(const BootPlan& plan, const Digest& digest);

  // Waits for the boot and returns what the digest returned. Fails if the kernel refuses the
  // private root, the process is ended by a signal, the boot takes longer than the plan allows (the
  // error names the file that it waits for), the resulting tree cannot be kept, or the digest
  // throws. To be called once; a process that was forked since may call it in place of this one.
  Result<json> Finish();

 private:
  explicit StartedBoot(sandbox::RootProcess process) : process_(std::move(process)) {}

  sandbox::RootProcess process_;
};

// Starts a boot and finishes it.
Result<json> RunBoot(const BootPlan& plan, const Digest& digest);

// Is told why a boot is given up, on a thread of its own; has to end the process.
using GiveUp = std::function<void(const std::string& error)>;

// Plays the host in this very process and its root, whatever tree the plan names, and returns what
// happened. Once per process. Calls `give_up` where the boot takes longer than the plan allows.
BootRecord PlayHost(const BootPlan& plan, const Library& library, const GiveUp& give_up);

}  // namespace extprop
