// PID 1 of the emulated machine. The machine's root is the sample device itself, so the host is
// played in it directly: nothing stands between the library and the kernel. The kernel passes the
// arguments on from its command line; they are those of `extprop boot`.

#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <iostream>

#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/boot_options.h"
#include "host/extprop/boot/library.h"
#include "host/extprop/render/render_text.h"

namespace {

using android::base::Error;
using android::base::Result;

// Without this the serial console would end each line in CR LF.
void PassBytesUnchanged() {
  termios console;
  if (tcgetattr(STDOUT_FILENO, &console) != 0) return;
  cfmakeraw(&console);
  tcsetattr(STDOUT_FILENO, TCSANOW, &console);
}

// Ends the machine, as PID 1 may not end.
void PowerOff(const std::string& outcome) {
  printf("===== %s\n", outcome.c_str());
  fflush(stdout);
  tcdrain(STDOUT_FILENO);
  reboot(RB_POWER_OFF);
}

Result<void> Boot(int argc, char** argv) {
  Result<extprop::BootOptions> options = extprop::ParseBootOptions(argc, argv);
  if (!options.ok()) return options.error();
  Result<extprop::BootPlan> plan = extprop::MakePlan(*options);
  if (!plan.ok()) return plan.error();
  Result<extprop::Library> library = extprop::LoadLibrary(plan->library);
  if (!library.ok()) return library.error();
  extprop::TextOptions text;
  text.all = true;
  text.log = extprop::Severity::kInfo;
  extprop::RenderText(extprop::PlayHost(*plan, *library, PowerOff), text, std::cout);
  return {};
}

Result<void> BootOrExplain(int argc, char** argv) {
  try {
    return Boot(argc, argv);
  } catch (const std::exception& error) {
    return Error() << error.what();
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (getpid() != 1) {
    fprintf(stderr, "device_init: only for the emulated machine, as its PID 1\n");
    return 2;
  }
  PassBytesUnchanged();
  mkdir("/proc", 0555);
  if (mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
    perror("mount /proc");
  }
  utsname system = {};
  uname(&system);
  // stage_device.sh takes what stands between the two lines that begin with "=====".
  printf("PID 1 on %s %s %s\n===== boot\n", system.sysname, system.release, system.machine);
  fflush(stdout);
  Result<void> booted = BootOrExplain(argc, argv);
  std::cout.flush();
  PowerOff(booted.ok() ? "done" : booted.error().message());
  return 1;
}
