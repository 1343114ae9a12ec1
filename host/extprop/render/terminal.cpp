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
#include <map>
#include <numeric>
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

}  // namespace

bool ColourWanted() {
  return isatty(STDOUT_FILENO) == 1 && Environment("NO_COLOR").empty() &&
         Environment("TERM") != "dumb";
}

std::string Coloured(const char* style, const std::string& text) {
  static const bool wanted = ColourWanted();
  return wanted ? "\033[" + std::string(style) + "m" + text + "\033[0m" : text;
}

size_t TerminalWidth(int fd) {
  winsize size = {};
  return ioctl(fd, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

size_t Columns(const std::string& text) {
  // All but what continues a character in UTF-8.
  const auto begins = [](char byte) { return (static_cast<unsigned char>(byte) & 0xc0) != 0x80; };
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), begins));
}

std::vector<std::string> Wrap(const std::string& text, size_t width, size_t hang) {
  std::vector<std::string> lines = {text};
  const size_t first_word = text.find_first_not_of(' ');
  for (size_t from = first_word; width > 0 && Columns(lines.back()) > width; from = hang) {
    std::string& line = lines.back();
    size_t blank = line.find(' ', from);
    for (size_t next = blank; next != std::string::npos; next = line.find(' ', next + 1)) {
      if (Columns(line.substr(0, next)) <= width) blank = next;
    }
    const size_t rest = line.find_first_not_of(' ', blank);
    if (rest == std::string::npos) break;
    std::string next_line = std::string(hang, ' ') + line.substr(rest);
    line.resize(blank);
    lines.push_back(std::move(next_line));
  }
  return lines;
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
