#pragma once

#include <string>

#include <android-base/result.h>

namespace extprop {

// Shows other content at the path of a file, by a bind mount, for as long as it lives; the path
// cannot be deleted meanwhile. Only for use inside a private root.
class StandIn {
 public:
  // Fails where the kernel refuses the mount. A link as the last component is followed.
  static android::base::Result<StandIn> For(const std::string& path);

  StandIn(StandIn&& other) noexcept;
  StandIn& operator=(StandIn&&) = delete;
  ~StandIn();

  // Replaces what is shown; what the file itself holds at first. Throws std::system_error where
  // there is no room for it.
  void Show(const std::string& content);
  // What the file itself holds.
  const std::string& Original() const { return original_; }

 private:
  StandIn() = default;

  std::string path_;
  std::string shown_;
  std::string original_;
};

}  // namespace extprop
