#include "host/extprop/carriers/job_pool.h"

#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <thread>
#include <utility>
#include <vector>

namespace extprop {

namespace {

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

// What goes through the pipe before an outcome's bytes.
struct Header {
  size_t number;
  size_t size;
};

struct Worker {
  pid_t process;
  unique_fd from;
  std::string received;
};

// The next number to work on, shared with the workers.
class Counter {
 public:
  Counter()
      : page_(mmap(nullptr, sizeof(std::atomic<size_t>), PROT_READ | PROT_WRITE,
                   MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (HasPage()) new (page_) std::atomic<size_t>(0);
  }
  ~Counter() {
    if (HasPage()) munmap(page_, sizeof(std::atomic<size_t>));
  }
  Counter(const Counter&) = delete;
  Counter& operator=(const Counter&) = delete;

  bool HasPage() const { return page_ != MAP_FAILED; }
  size_t Next() { return static_cast<std::atomic<size_t>*>(page_)->fetch_add(1); }

 private:
  void* page_;
};

// noexcept, so that an exception ends the worker instead of unwinding into the caller's copy.
[[noreturn]] void RunWorker(pid_t parent, size_t count, Counter* counter, const Work& work,
                            const std::function<void()>& start, const unique_fd& to) noexcept {
  if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent) _exit(EXIT_FAILURE);
  if (start) start();
  for (size_t number = counter->Next(); number < count; number = counter->Next()) {
    const std::string outcome = work(number);
    const Header header = {number, outcome.size()};
    if (!android::base::WriteFully(to, &header, sizeof(header)) ||
        !android::base::WriteFully(to, outcome.data(), outcome.size())) {
      _exit(EXIT_FAILURE);
    }
  }
  _exit(EXIT_SUCCESS);
}

class Pool {
 public:
  Pool(size_t count, const Take& take) : count_(count), take_(take) {}
  ~Pool() {
    for (const Worker& worker : workers_) {
      kill(worker.process, SIGKILL);
      waitpid(worker.process, nullptr, 0);
    }
  }
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  Result<void> Start(size_t jobs, Counter* counter, const Work& work,
                     const std::function<void()>& start) {
    fflush(nullptr);
    while (workers_.size() < jobs) {
      Worker worker;
      unique_fd to;
      if (!android::base::Pipe(&worker.from, &to)) return ErrnoError() << "cannot make a pipe";
      const pid_t parent = getpid();
      worker.process = fork();
      if (worker.process < 0) return ErrnoError() << "cannot start a process";
      if (worker.process == 0) RunWorker(parent, count_, counter, work, start, to);
      workers_.push_back(std::move(worker));
    }
    return {};
  }

  Result<void> Collect() {
    while (next_ < count_) {
      std::vector<pollfd> polled;
      for (const Worker& worker : workers_) {
        if (worker.from >= 0) polled.push_back({worker.from.get(), POLLIN, 0});
      }
      if (polled.empty()) return Error() << "a child process ended before its work was done";
      if (TEMP_FAILURE_RETRY(poll(polled.data(), polled.size(), -1)) < 0) {
        return ErrnoError() << "cannot wait for the child processes";
      }
      for (const pollfd& ready : polled) {
        if (ready.revents != 0) Receive(ready.fd);
      }
    }
    return {};
  }

 private:
  void Receive(int fd) {
    const auto worker = std::find_if(workers_.begin(), workers_.end(),
                                     [fd](const Worker& one) { return one.from.get() == fd; });
    char bytes[65536];
    const ssize_t size = TEMP_FAILURE_RETRY(read(fd, bytes, sizeof(bytes)));
    if (size <= 0) return worker->from.reset();
    std::string& received = worker->received;
    received.append(bytes, static_cast<size_t>(size));
    Header header;
    while (received.size() >= sizeof(header)) {
      memcpy(&header, received.data(), sizeof(header));
      if (received.size() - sizeof(header) < header.size) break;
      early_[header.number] = received.substr(sizeof(header), header.size);
      received.erase(0, sizeof(header) + header.size);
    }
    for (auto first = early_.begin(); first != early_.end() && first->first == next_;
         first = early_.erase(first)) {
      take_(next_++, first->second);
    }
  }

  const size_t count_;
  const Take& take_;
  std::vector<Worker> workers_;
  std::map<size_t, std::string> early_;  // outcomes that wait for one before them
  size_t next_ = 0;
};

}  // namespace

Result<void> RunJobs(size_t count, unsigned jobs, const Work& work, const Take& take,
                     const std::function<void()>& start) {
  if (jobs == 0) jobs = std::max(1U, std::thread::hardware_concurrency());
  Counter counter;
  if (!counter.HasPage()) return ErrnoError() << "cannot share memory";
  Pool pool(count, take);
  Result<void> started = pool.Start(std::min<size_t>(jobs, count), &counter, work, start);
  return started.ok() ? pool.Collect() : started;
}

}  // namespace extprop
