#pragma once

#include <cstddef>
#include <string>

namespace extprop {

// A bar at the end of a terminal's standard error stream; nothing where that is no terminal.
class Progress {
 public:
  Progress();
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Shows that `done` of `count` are done and `what` is at hand.
  void Show(size_t done, size_t count, const std::string& what);
  // Takes the bar away, before something else is printed.
  void Clear();

 private:
  const bool wanted_;
  bool shown_ = false;
};

}  // namespace extprop
