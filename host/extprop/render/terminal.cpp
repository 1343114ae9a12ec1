#include "host/extprop/render/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <android-base/stringprintf.h>

#include <algorithm>
#include <cstdlib>

namespace extprop {

namespace {

std::string Environment(const char* name) {
  const char* value = getenv(name);
  return value == nullptr ? "" : value;
}

}  // namespace

bool ColourWanted() {
  return isatty(STDOUT_FILENO) == 1 && Environment("NO_COLOR").empty() &&
         Environment("TERM") != "dumb";
}

size_t TerminalWidth() {
  winsize size = {};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
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

std::string Visible(const std::string& text) {
  std::string visible;
  for (const char byte : text) {
    if (byte == '\n') {
      visible += "\\n";
    } else if (byte == '\t') {
      visible += "\\t";
    } else if (byte == '\r') {
      visible += "\\r";
    } else if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f) {
      visible += android::base::StringPrintf("\\x%02x", static_cast<unsigned>(byte));
    } else {
      visible += byte;
    }
  }
  return visible;
}

}  // namespace extprop
