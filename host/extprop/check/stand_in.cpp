#include "host/extprop/check/stand_in.h"

#include <sys/mount.h>
#include <unistd.h>

#include <android-base/file.h>

#include <system_error>
#include <utility>

namespace extprop {

using android::base::ErrnoError;
using android::base::Result;

Result<StandIn> StandIn::For(const std::string& path) {
  static int count = 0;
  StandIn made;
  if (!android::base::ReadFileToString(path, &made.original_)) {
    return ErrnoError() << "cannot read " << path;
  }
  made.shown_ = "/.extprop-" + std::to_string(++count);
  made.Show(made.original_);
  if (mount(made.shown_.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0) {
    return ErrnoError() << "cannot mount over " << path;
  }
  made.path_ = path;
  return made;
}

StandIn::StandIn(StandIn&& other) noexcept
    : path_(std::exchange(other.path_, "")),
      shown_(std::exchange(other.shown_, "")),
      original_(std::move(other.original_)) {}

StandIn::~StandIn() {
  if (!path_.empty()) umount2(path_.c_str(), MNT_DETACH);
  if (!shown_.empty()) unlink(shown_.c_str());
}

void StandIn::Show(const std::string& content) {
  if (!android::base::WriteStringToFile(content, shown_)) {
    throw std::system_error(errno, std::generic_category(), "cannot write " + shown_);
  }
}

}  // namespace extprop
