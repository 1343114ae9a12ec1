#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "extproperty/init_extension_property.h"
#include "host/extprop/boot/boot_record.h"
#include "host/extprop/explain/line_finder.h"
#include "host/watch/platform_calls.h"

namespace extprop {

// The property through which requests reach the bind thread.
constexpr const char* kRequestProperty = "sys.cota.bind.load.properties";

// Writes the record of a boot in this process: it receives the hand-overs, the log lines and the
// library's calls into the platform, from whichever thread they come, and applies every map to the
// property store as it arrives, as init does.
//
// One per process, never destroyed: the bind thread may outlive every step.
class Recorder : public watch::Observer {
 public:
  // Sets the store to `initial` and starts to observe and log. The calling thread is the host's.
  static Recorder* Start(const Properties& initial);

  // From now on every value that a file gives is preceded by its line.
  void Attribute(android::init::IInitExtensionProperty* service);

  // The callback for the loaders.
  static void OnHandOver(int mode, android::init::PropertyMap map);

  // All further events belong to `step`. The reference is good until the next BeginStep.
  void BeginStep(Step step);
  void FailStep(const std::string& error);
  // Ends the step and takes it out of the record.
  Step TakeStep();

  // The bind thread that was heard of last, 0 before any was.
  pid_t bind_thread();
  // How many requests the bind thread has reported as served.
  size_t requests_served();

  // Ends the record: nothing that happens later enters it.
  BootRecord Finish();

  watch::Verdict Before(const watch::PlatformCall& call) override;
  void After(const watch::PlatformCall& call, long result, int error) override;

 private:
  // What stood at a path before the library first touched it.
  struct Snapshot {
    FileState state;
    std::string content;
  };

  Recorder();
  void Add(decltype(Event::what) what);
  void AddFile(FileOp op, const watch::PlatformCall& call, int error);
  void Log(LogLine line);
  void Receive(int mode, android::init::PropertyMap&& map);
  void TrackRead(const watch::PlatformCall& call, long result);
  std::vector<PropertyLine> FindLines();
  void AddLines(std::vector<PropertyLine> lines);
  void AddWholeContent(const std::string& name, const std::string& value);
  void CloseStep(std::vector<PropertyLine> lines);
  void FindChanges();
  static Snapshot Look(const std::string& path);

  const pid_t host_thread_;
  std::mutex lock_;
  bool finished_ = false;
  BootRecord record_;
  std::map<std::string, Snapshot> touched_;
  // For attribution: the files read since the last hand-over and those before it in the step, and
  // what the step's lines set.
  std::unique_ptr<LineFinder> finder_;
  std::vector<FileRead> reads_;
  std::vector<FileRead> earlier_reads_;
  std::set<std::pair<std::string, std::string>> lines_;
  pid_t bind_thread_ = 0;
  size_t requests_served_ = 0;
};

}  // namespace extprop
