#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "extproperty/init_extension_property.h"
#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/changed_files.h"
#include "host/extprop/boot/path_origins.h"
#include "host/watch/platform_calls.h"

namespace extprop {

// The property through which requests reach the bind thread.
constexpr const char* kRequestProperty = "sys.cota.bind.load.properties";

// Writes the record of a boot in this process: it receives the hand-overs, the log lines, the lines
// of property files and the library's calls into the platform, from whichever thread they come, and
// applies every map to the property store as it arrives, as init does: docs/host_model.md.
//
// One per process, never destroyed: the bind thread may outlive every step.
class Recorder : public watch::Observer, public android::init::PropertyFileObserver {
 public:
  // Sets the store to those of the plan's properties that init takes and does not load later, and
  // starts to observe and log. The calling thread is the host's. `library` tells what init refuses
  // and, if the plan asks for them, the lines of property files, which it must be able to.
  static Recorder* Start(const BootPlan& plan, const Library& library);

  // Loads the stored properties, as init does after the partitions; the event belongs to the last
  // step. Does nothing before any step, nor when called again.
  void LoadStored();

  // The callback for the loaders.
  static void OnHandOver(int mode, android::init::PropertyMap map);

  // All further events belong to `step`. The reference is good until the next BeginStep.
  void BeginStep(Step step);
  void FailStep(const std::string& error);

  // The bind thread that was heard of last, 0 before any was.
  pid_t bind_thread();
  // How many requests the bind thread has reported as served.
  size_t requests_served();

  // A file that the library is opening or reading at this moment, empty where it does neither.
  std::string WaitsFor();

  // Ends the record: nothing that happens later enters it.
  BootRecord Finish();

  watch::Verdict Before(const watch::PlatformCall& call) override;
  void After(const watch::PlatformCall& call, long result, int error) override;
  void EnterFile(std::string_view path, std::string_view filter,
                 const android::init::PropertyMap* properties) override;
  void LeaveFile(std::string_view error) override;
  void ReadLine(const android::init::PropertyLine& line) override;

 private:
  Recorder(const BootPlan& plan, const Library& library);
  void Add(decltype(Event::what) what);
  void AddFile(FileOp op, const watch::PlatformCall& call, int error);
  void Log(LogLine line);
  void Receive(int mode, android::init::PropertyMap&& map);
  size_t NumberOf(const android::init::PropertyMap* map);
  std::string Refusal(const std::string& name, const std::string& value) const;
  void CloseStep();
  std::string PathOf(const watch::PlatformCall& call);

  pid_t host_thread_;
  const bool opens_fifos_;
  const std::function<bool(const std::string& name)> keep_line_;
  const Library library_;
  std::mutex lock_;
  bool finished_ = false;
  BootRecord record_;
  Properties stored_;
  bool stored_loaded_ = false;
  std::map<pid_t, watch::PlatformCall> under_way_;  // each thread's open or read
  ChangedFiles changed_files_;
  PathOrigins path_origins_;
  std::map<const android::init::PropertyMap*, size_t> maps_;  // their numbers
  size_t map_count_ = 0;
  pid_t bind_thread_ = 0;
  size_t requests_served_ = 0;
};

}  // namespace extprop
