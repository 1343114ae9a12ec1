#include "host/watch/platform_calls.h"

#include <cutils/properties.h>
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <type_traits>

#include "host/watch/caller.h"

// The wrappers run from the first call in the process on, before any constructor: up to the point
// where a call is observed they neither lock nor allocate, and this file is not instrumented.
namespace watch {
namespace {

std::atomic<Observer*> current_observer{nullptr};
thread_local bool observing = false;

constexpr size_t kNoLimit = ~size_t{0};

// Returns the definition that the wrapper `kWrapper` hides: the sanitizer's or the C library's.
template <auto kWrapper>
auto Next(const char* name) {
  static std::atomic<void*> next{nullptr};
  void* found = next.load(std::memory_order_relaxed);
  if (found == nullptr) {
    found = dlsym(RTLD_NEXT, name);
    next.store(found, std::memory_order_relaxed);
  }
  return reinterpret_cast<decltype(kWrapper)>(found);
}
#define NEXT(function) watch::Next<&function>(#function)

bool IsObserved(Call kind, const void* caller) {
  if (observing || current_observer.load(std::memory_order_acquire) == nullptr) return false;
  // What libbase writes is its log.
  return kind == Call::kWrite ? IsLibraryCode(caller) : IsMadeForLibrary(caller);
}

template <typename R>
R FailedResult(Call kind, int error) {
  if constexpr (std::is_pointer_v<R>) {
    return nullptr;
  } else {
    return kind == Call::kThreadCreate ? static_cast<R>(error) : R{-1};
  }
}

template <typename R>
long ReportedResult(R result) {
  if constexpr (std::is_pointer_v<R>) {
    return result == nullptr ? -1 : 0;
  } else {
    return static_cast<long>(result);
  }
}

// Makes one call through `real`, which takes the largest count that it may transfer. If it is
// observed, `describe` fills in its arguments and the observer decides on it.
template <typename Describe, typename Real>
auto Pass(Call kind, const void* caller, Describe describe, Real real) {
  using R = decltype(real(kNoLimit));
  if (!IsObserved(kind, caller)) return real(kNoLimit);
  const int errno_before = errno;
  observing = true;
  Observer* observer = current_observer.load(std::memory_order_acquire);
  PlatformCall call;
  call.call = kind;
  describe(&call);
  const Verdict verdict = observer->Before(call);
  errno = verdict.fail ? verdict.error : 0;
  R result = verdict.fail ? FailedResult<R>(kind, verdict.error) : real(verdict.limit);
  const int error = ReportedResult(result) < 0 ? errno : 0;
  if (verdict.as_root && (error == EPERM || error == EINVAL)) result = R{};
  const long reported = ReportedResult(result);
  observer->After(call, reported, error);
  observing = false;
  errno = reported < 0 && error != 0 ? error : errno_before;
  return result;
}

template <typename Real>
int PassOpen(const void* caller, const char* path, int flags, mode_t mode, Real real) {
  const auto describe = [&](PlatformCall* call) {
    call->path = path;
    call->flags = static_cast<unsigned>(flags);
    call->mode = mode;
  };
  return Pass(Call::kOpen, caller, describe, real);
}

template <typename Real>
auto PassFd(Call kind, const void* caller, int fd, size_t count, Real real) {
  const auto describe = [&](PlatformCall* call) {
    call->fd = fd;
    call->count = count;
  };
  return Pass(kind, caller, describe, real);
}

template <typename Real>
auto PassPath(Call kind, const void* caller, const char* path, Real real) {
  return Pass(
      kind, caller, [&](PlatformCall* call) { call->path = path; }, real);
}

template <typename Real>
auto PassBare(Call kind, const void* caller, Real real) {
  return Pass(
      kind, caller, [](PlatformCall*) {}, real);
}

bool HasMode(int flags) {
  return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

const char* TextOf(const char* text) {
  return text == nullptr ? "" : text;
}

}  // namespace

const char* CallName(Call call) {
  constexpr const char* kNames[] = {"open",    "read",  "write",        "fstat",         "lseek",
                                    "access",  "mkdir", "unlink",       "lchown",        "opendir",
                                    "readdir", "mount", "property_set", "pthread_create"};
  return kNames[static_cast<size_t>(call)];
}

Verdict Observer::Before(const PlatformCall& /*call*/) {
  return {};
}

void Observer::After(const PlatformCall& /*call*/, long /*result*/, int /*error*/) {}

void SetObserver(Observer* observer) {
  if (observer != nullptr) LocateLibraries();
  current_observer.store(observer, std::memory_order_release);
}

}  // namespace watch

using watch::Call;
using watch::Pass;
using watch::PassBare;
using watch::PassFd;
using watch::PassOpen;
using watch::PassPath;
using watch::PlatformCall;

#define CALLER __builtin_return_address(0)

extern "C" {

// NOLINTBEGIN: the names are the C library's.
// What the headers' checked variants of the calls are compiled to.
int __open_2(const char* path, int flags);
int __open64_2(const char* path, int flags);
ssize_t __read_chk(int fd, void* buffer, size_t count, size_t capacity);
// NOLINTEND

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = watch::HasMode(flags) ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return PassOpen(CALLER, path, flags, mode, [&](size_t) { return NEXT(open)(path, flags, mode); });
}

int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = watch::HasMode(flags) ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return PassOpen(CALLER, path, flags, mode,
                  [&](size_t) { return NEXT(open64)(path, flags, mode); });
}

int __open_2(const char* path, int flags) {
  return PassOpen(CALLER, path, flags, 0, [&](size_t) { return NEXT(__open_2)(path, flags); });
}

int __open64_2(const char* path, int flags) {
  return PassOpen(CALLER, path, flags, 0, [&](size_t) { return NEXT(__open64_2)(path, flags); });
}

ssize_t read(int fd, void* buffer, size_t count) {
  return PassFd(Call::kRead, CALLER, fd, count,
                [&](size_t limit) { return NEXT(read)(fd, buffer, std::min(count, limit)); });
}

ssize_t __read_chk(int fd, void* buffer, size_t count, size_t capacity) {
  return PassFd(Call::kRead, CALLER, fd, count, [&](size_t limit) {
    return NEXT(__read_chk)(fd, buffer, std::min(count, limit), capacity);
  });
}

ssize_t write(int fd, const void* buffer, size_t count) {
  return PassFd(Call::kWrite, CALLER, fd, count,
                [&](size_t limit) { return NEXT(write)(fd, buffer, std::min(count, limit)); });
}

int fstat(int fd, struct stat* about) noexcept {
  return PassFd(Call::kFstat, CALLER, fd, 0, [&](size_t) { return NEXT(fstat)(fd, about); });
}

int fstat64(int fd, struct stat64* about) noexcept {
  return PassFd(Call::kFstat, CALLER, fd, 0, [&](size_t) { return NEXT(fstat64)(fd, about); });
}

off_t lseek(int fd, off_t offset, int origin) noexcept {
  return PassFd(Call::kLseek, CALLER, fd, 0,
                [&](size_t) { return NEXT(lseek)(fd, offset, origin); });
}

off64_t lseek64(int fd, off64_t offset, int origin) noexcept {
  return PassFd(Call::kLseek, CALLER, fd, 0,
                [&](size_t) { return NEXT(lseek64)(fd, offset, origin); });
}

int access(const char* path, int mode) noexcept {
  return PassPath(Call::kAccess, CALLER, path, [&](size_t) { return NEXT(access)(path, mode); });
}

int unlink(const char* path) noexcept {
  return PassPath(Call::kUnlink, CALLER, path, [&](size_t) { return NEXT(unlink)(path); });
}

int mkdir(const char* path, mode_t mode) noexcept {
  const auto describe = [&](PlatformCall* call) {
    call->path = path;
    call->mode = mode;
  };
  return Pass(Call::kMkdir, CALLER, describe, [&](size_t) { return NEXT(mkdir)(path, mode); });
}

int lchown(const char* path, uid_t owner, gid_t group) noexcept {
  const auto describe = [&](PlatformCall* call) {
    call->path = path;
    call->owner = owner;
    call->group = group;
  };
  return Pass(Call::kLchown, CALLER, describe,
              [&](size_t) { return NEXT(lchown)(path, owner, group); });
}

DIR* opendir(const char* path) {
  return PassPath(Call::kOpendir, CALLER, path, [&](size_t) { return NEXT(opendir)(path); });
}

dirent* readdir(DIR* directory) {
  return PassBare(Call::kReaddir, CALLER, [&](size_t) { return NEXT(readdir)(directory); });
}

dirent64* readdir64(DIR* directory) {
  return PassBare(Call::kReaddir, CALLER, [&](size_t) { return NEXT(readdir64)(directory); });
}

int mount(const char* source, const char* target, const char* type, unsigned long flags,
          const void* data) noexcept {
  const auto describe = [&](PlatformCall* call) {
    call->path = watch::TextOf(target);
    call->source = watch::TextOf(source);
    call->flags = flags;
  };
  return Pass(Call::kMount, CALLER, describe,
              [&](size_t) { return NEXT(mount)(source, target, type, flags, data); });
}

int property_set(const char* name, const char* value) {
  const auto describe = [&](PlatformCall* call) {
    call->path = name;
    call->source = watch::TextOf(value);
  };
  return Pass(Call::kPropertySet, CALLER, describe,
              [&](size_t) { return NEXT(property_set)(name, value); });
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
  return PassBare(Call::kThreadCreate, CALLER, [&](size_t) {
    return NEXT(pthread_create)(thread, attributes, start, argument);
  });
}

}  // extern "C"
