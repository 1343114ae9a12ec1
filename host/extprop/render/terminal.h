#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace extprop {

// Returns true where the standard output is a terminal that shows colours and NO_COLOR is not set.
bool ColourWanted();

// Returns the columns of the standard output's terminal, 0 where it is none.
std::size_t TerminalWidth();

// Returns how many columns `text` takes, which has no control bytes.
std::size_t Columns(const std::string& text);

// Returns `text` as lines of at most `width` columns, broken at blanks; those after the first begin
// with `hang` blanks. A word that is longer still has a line of its own. 0 means no limit.
std::vector<std::string> Wrap(const std::string& text, std::size_t width, std::size_t hang);

// Returns `text` on one line: control bytes are written as in C.
std::string Visible(const std::string& text);

}  // namespace extprop
