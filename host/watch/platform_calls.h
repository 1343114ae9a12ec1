#pragma once

#include <sys/types.h>

#include <string>

// Sees every call that the library makes into the platform, before and after it happens. A program
// that links this part defines the C library's entry points itself and passes each call on; calls
// that do not come from libextproperty.so, or from libbase or the C++ library on its behalf, are
// passed on unseen.
//
// The tool uses it to tell what a loader read, wrote and mounted; the fault tests use it to make
// one call fail.
namespace watch {

enum class Call {
  kOpen,
  kRead,
  kWrite,
  kFstat,
  kLseek,
  kAccess,
  kMkdir,
  kUnlink,
  kLchown,
  kOpendir,
  kReaddir,
  kMount,
  kPropertySet,
  kThreadCreate,
};

// Returns the call's name as the C library spells it, such as "open".
const char* CallName(Call call);

struct PlatformCall {
  Call call;
  std::string path;         // the path, the mount target, or the property's name, if there is one
  std::string source;       // the mount source, or the property's value
  unsigned long flags = 0;  // open or mount flags
  mode_t mode = 0;          // of open and mkdir
  uid_t owner = 0;          // of lchown
  gid_t group = 0;
  int fd = -1;       // of read, write, fstat and lseek
  size_t count = 0;  // bytes asked for
};

// What an observer wants to happen instead of the real call.
struct Verdict {
  bool fail = false;  // return -1 (or null, or the error) with errno set to `error`
  int error = 0;
  size_t limit = ~size_t{0};  // the largest count that read or write may transfer
  // Where the real call fails only because this process is not the device's root (EPERM, or EINVAL
  // for an owner that the user namespace lacks), the caller gets 0 as if it had been done. For
  // calls that return an int.
  bool as_root = false;
};

// Observers are called on the thread that makes the call. They must not throw. Calls that they make
// themselves are not observed.
class Observer {
 public:
  virtual ~Observer() = default;
  // Before the call. The default lets it happen.
  virtual Verdict Before(const PlatformCall& call);
  // After it; `result` is what the caller will get (for pointers: 0 or -1), `error` its errno. A
  // call that was answered as done though the kernel refused it has the result 0 and the error.
  virtual void After(const PlatformCall& call, long result, int error);
};

// Makes `observer` see all further calls, or none if null. The caller owns it and keeps it alive
// until it is replaced. Not to be called before the library is loaded, nor while a loader runs.
void SetObserver(Observer* observer);

}  // namespace watch
