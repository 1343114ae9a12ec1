#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

namespace extprop {

// How a terminal is to show a text.
constexpr const char* kBold = "1";
constexpr const char* kDim = "2";
constexpr const char* kRed = "31";
constexpr const char* kGreen = "32";
constexpr const char* kYellow = "33";
constexpr const char* kBoldRed = "1;31";
constexpr const char* kBoldMagenta = "1;35";
constexpr const char* kBoldCyan = "1;36";

// Returns true where the standard output is a terminal that shows colours and NO_COLOR is not set.
bool ColourWanted();

// Returns `text` for the standard output, in that style where ColourWanted().
std::string Coloured(const char* style, const std::string& text);

// Prints `text` on the standard output, all output of the commands for people. On a terminal lines
// that are too long are broken at blanks, and go on four columns behind where they begin; a word
// that is longer still has a line of its own.
void Print(const std::string& text);

// Returns `text` with what takes no room, looks like a blank or is no character as bytes in C;
// control bytes of ASCII stay. In a locale of UTF-8, as LoadLibrary sets it.
std::string WithoutInvisible(const std::string& text);

// Returns `text` without such characters on one line: control bytes are written as in C.
std::string Visible(const std::string& text);

// Returns a property's value as "[VALUE]", visible, or "unset" where it is empty.
std::string Shown(const std::string& value);

// Returns such as "1 file", "2 files" or "2 properties".
std::string Count(std::size_t number, const std::string& noun);

// Returns those of `names` that `name` may be a misspelling of, the nearest first, three at most.
std::vector<std::string> NearestNames(const std::string& name, const std::set<std::string>& names);

// A bar at the end of a terminal's standard error stream; nothing where that is no terminal.
class Progress {
 public:
  Progress();
  ~Progress() { Clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Shows that `done` of `count` are done and `what` is at hand.
  void Show(std::size_t done, std::size_t count, const std::string& what);
  // Takes the bar away, before something else is printed.
  void Clear();

 private:
  const bool wanted_;
  bool shown_ = false;
};

}  // namespace extprop
