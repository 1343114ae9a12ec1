#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/boot/library.h"
#include "host/extprop/boot/loaders.h"
#include "host/extprop/trees/device_tree.h"

namespace extprop {

// One step to take: a call of `loader`, or a post of the word `argument` if `loader` is null.
struct PlannedStep {
  const Loader* loader = nullptr;
  std::string argument;
};

struct BootPlan {
  std::string tree;     // the device's files, as the user named them; never changed
  DeviceTree device;    // the same, opened
  std::string library;  // the path of libextproperty.so; empty to find it
  Properties properties;
  std::vector<PlannedStep> steps;
  // Changes the device's files before the boot, in the private root only; may throw.
  std::function<void()> prepare;
  bool lines = false;  // record the lines of property files
  std::chrono::seconds timeout = std::chrono::seconds(30);
  // An empty directory that receives the resulting tree (kept_tree.h); not owned, -1 for none.
  int keep_fd = -1;
};

// Plays the host in a private root made from the plan's tree, in a child process, and returns what
// happened. A step that could not be completed has its `error` set and is the last one. Fails if
// the library cannot be loaded or cannot tell the lines that the plan asks for, the kernel refuses
// the private root, the child is ended by a signal, the boot takes longer than the plan allows (the
// error names the file that it waits for), or the resulting tree cannot be kept.
android::base::Result<BootRecord> RunBoot(const BootPlan& plan);

// The same, but returns what `digest` makes of the record, for which it is called in the child
// process: for a caller that wants less than the whole.
android::base::Result<std::string> RunBootFor(
    const BootPlan& plan, const std::function<std::string(const BootRecord& record)>& digest);

// Plays those of the plan's first steps that fill maps, in this process, and goes on from there in
// every boot that this process makes of `*plan` afterwards. The properties and `prepare` may still
// change, as long as no such step depends on them. Returns false, and has done nothing, where the
// kernel does not allow it or there is no such step; a process that could not go on is ended. For a
// process of its own that makes many boots.
bool PlayFirstSteps(BootPlan* plan);

// Is told why a boot is given up, on a thread of its own; has to end the process.
using GiveUp = void (*)(const std::string& error);

// Plays the host in this very process and its root, whatever tree the plan names. Once per process.
// Calls `give_up` where the boot takes longer than the plan allows.
BootRecord PlayHost(const BootPlan& plan, Factory factory, GiveUp give_up);

}  // namespace extprop
