#include "host/extprop/render/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "host/extprop/render/terminal.h"

namespace extprop {

namespace {

constexpr size_t kBar = 20;

bool CanDraw() {
  const char* terminal = getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && terminal != nullptr && std::string(terminal) != "dumb";
}

size_t Columns() {
  winsize size = {};
  ioctl(STDERR_FILENO, TIOCGWINSZ, &size);
  return size.ws_col == 0 ? 80 : size.ws_col;
}

}  // namespace

Progress::Progress() : wanted_(CanDraw()) {}

void Progress::Show(size_t done, size_t count, const std::string& what) {
  if (!wanted_ || count == 0) return;
  const size_t full = kBar * done / count;
  std::string line = '[' + std::string(full, '#') + std::string(kBar - full, '.') + "] " +
                     std::to_string(done) + '/' + std::to_string(count) + ' ' + Visible(what);
  // One column stays free: a full line would wrap.
  line.resize(std::min(line.size(), Columns() - 1));
  fprintf(stderr, "\r%s\033[K", line.c_str());
  shown_ = true;
}

void Progress::Clear() {
  if (shown_) fputs("\r\033[K", stderr);
  shown_ = false;
}

}  // namespace extprop
