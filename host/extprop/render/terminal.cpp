#include "host/extprop/render/terminal.h"

#include <strings.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <android-base/format.h>
#include <android-base/strings.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <iostream>
#include <map>
#include <numeric>
#include <sstream>
#include <utility>

namespace extprop {

namespace {

constexpr size_t kBar = 20;  // the columns of a progress bar

std::string Environment(const char* name) {
  const char* value = getenv(name);
  return value == nullptr ? "" : value;
}

std::string Escaped(char byte) {
  return fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
}

// How many letters have to be put in, left out or exchanged, whatever their case.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (const char letter : a) {
    size_t diagonal = std::exchange(row[0], row[0] + 1);
    for (size_t j = 1; j < row.size(); ++j) {
      const bool same = strncasecmp(&letter, &b[j - 1], 1) == 0;
      const size_t exchanged = diagonal + (same ? 0 : 1);
      diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, exchanged}));
    }
  }
  return row.back();
}

// Returns the columns of the terminal that a descriptor leads to; 0 where it is none.
size_t TerminalWidth(int fd) {
  winsize size = {};
  return ioctl(fd, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

// Returns the line broken as Print says.
std::string Wrapped(const std::string& line, size_t width) {
  const size_t indent = std::min(line.find_first_not_of(' '), line.size());
  std::string wrapped = line.substr(0, indent), word;
  size_t column = indent, word_columns = 0;
  bool in_style = false;
  // A word has its blanks before it.
  const auto end_word = [&] {
    const size_t blanks = std::min(word.find_first_not_of(' '), word.size());
    if (column > indent && column + word_columns > width && blanks < word.size()) {
      wrapped += "\n" + std::string(indent + 4, ' ');
      column = indent + 4;
      word.erase(0, blanks);
      word_columns -= blanks;
    }
    wrapped += word;
    column += word_columns;
    word.clear();
    word_columns = 0;
  };
  for (const char byte : line.substr(indent)) {
    if (byte == ' ' && !word.empty() && word.back() != ' ') end_word();
    word += byte;
    // What sets a style takes no room, nor does what continues a character in UTF-8.
    in_style = in_style || byte == '\033';
    if (!in_style && (static_cast<unsigned char>(byte) & 0xc0) != 0x80) ++word_columns;
    if (byte == 'm') in_style = false;
  }
  end_word();
  return wrapped;
}

}  // namespace

bool ColourWanted() {
  return isatty(STDOUT_FILENO) == 1 && Environment("NO_COLOR").empty() &&
         Environment("TERM") != "dumb";
}

std::string Coloured(const char* style, const std::string& text) {
  static const bool wanted = ColourWanted();
  return wanted ? "\033[" + std::string(style) + "m" + text + "\033[0m" : text;
}

void Print(const std::string& text) {
  const size_t width = TerminalWidth(STDOUT_FILENO);
  if (width == 0) {
    std::cout << text;
    return;
  }
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) std::cout << Wrapped(line, width) << '\n';
}

std::string WithoutInvisible(const std::string& text) {
  constexpr wchar_t kNoBreakSpace = 0xa0;
  std::string visible;
  std::mbstate_t state = {};
  for (size_t at = 0, length = 0; at < text.size(); at += length) {
    wchar_t letter = 0;
    length = std::mbrtowc(&letter, &text[at], text.size() - at, &state);
    const bool is_text = length <= text.size() - at;
    if (!is_text) state = {};
    if (!is_text || length == 0) length = 1;
    const std::string bytes = text.substr(at, length);
    const bool is_control = length == 1 && iscntrl(static_cast<unsigned char>(bytes[0])) != 0;
    if (is_control || (is_text && wcwidth(letter) > 0 && letter != kNoBreakSpace)) {
      visible += bytes;
    } else {
      for (const char byte : bytes) visible += Escaped(byte);
    }
  }
  return visible;
}

std::string Visible(const std::string& text) {
  static const std::map<char, std::string> named = {{'\n', "\\n"}, {'\t', "\\t"}, {'\r', "\\r"}};
  std::string visible;
  for (const char byte : WithoutInvisible(text)) {
    const auto name = named.find(byte);
    if (name != named.end()) {
      visible += name->second;
    } else if (iscntrl(static_cast<unsigned char>(byte)) != 0) {
      visible += Escaped(byte);
    } else {
      visible += byte;
    }
  }
  return visible;
}

std::string Shown(const std::string& value) {
  return value.empty() ? "unset" : "[" + Visible(value) + "]";
}

std::string Count(size_t number, const std::string& noun) {
  if (number == 1) return "1 " + noun;
  const bool in_y = noun.back() == 'y';
  return std::to_string(number) + " " +
         (in_y ? noun.substr(0, noun.size() - 1) + "ies" : noun + "s");
}

std::vector<std::string> NearestNames(const std::string& name, const std::set<std::string>& names) {
  std::multimap<size_t, std::string> by_distance;
  for (const std::string& other : names) by_distance.emplace(Distance(name, other), other);
  const size_t farthest = std::max<size_t>(1, name.size() / 3);
  std::vector<std::string> nearest;
  for (const auto& [distance, other] : by_distance) {
    if (distance <= farthest && nearest.size() < 3) nearest.push_back(other);
  }
  return nearest;
}

Progress::Progress()
    : wanted_(isatty(STDERR_FILENO) == 1 && !Environment("TERM").empty() &&
              Environment("TERM") != "dumb") {}

void Progress::Show(size_t done, size_t count, const std::string& what) {
  if (!wanted_ || count == 0) return;
  const size_t full = kBar * done / count;
  std::string line =
      fmt::format("[{:.<{}}] {}/{} {}", std::string(full, '#'), kBar, done, count, Visible(what));
  // One column stays free: a full line would wrap.
  const size_t width = TerminalWidth(STDERR_FILENO);
  line.resize(std::min(line.size(), (width == 0 ? 80 : width) - 1));
  fprintf(stderr, "\r%s\033[K", line.c_str());
  shown_ = true;
}

void Progress::Clear() {
  if (shown_) fputs("\r\033[K", stderr);
  shown_ = false;
}

}  // namespace extprop
