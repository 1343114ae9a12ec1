#include "host/extprop/render/render_text.h"

#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <android-base/stringprintf.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace extprop {

namespace {

using android::base::StringPrintf;

constexpr const char* kBold = "1";
constexpr const char* kDim = "2";
constexpr const char* kRed = "31";
constexpr const char* kYellow = "33";

std::string Property(const std::string& name, const std::string& value) {
  return "[" + Visible(name) + "]: [" + Visible(value) + "]";
}

std::string Describe(const FileState& state) {
  if (state.type.empty()) return "";
  std::string size;
  if (state.type == "file") size = StringPrintf("  %jd bytes", static_cast<intmax_t>(state.size));
  return size + StringPrintf("  %04o %u:%u", state.mode, state.uid, state.gid);
}

struct OpWords {
  const char* done;
  const char* failed;  // after "cannot"
};

OpWords Words(FileOp op) {
  static constexpr OpWords kWords[] = {{"read", "read"},
                                       {"wrote", "write"},
                                       {"made directory", "make directory"},
                                       {"deleted", "delete"},
                                       {"changed owner of", "change owner of"},
                                       {"found", "find"},
                                       {"listed", "list"}};
  return kWords[static_cast<int>(op)];
}

class TextRenderer {
 public:
  TextRenderer(const TextOptions& options, std::ostream& out) : options_(options), out_(out) {}

  void Render(const BootRecord& record) {
    for (const Step& step : record.steps) RenderStep(step);
    Heading("resulting properties");
    for (const auto& [name, value] : record.properties) out_ << Property(name, value) << '\n';
    Heading("changed files");
    for (const FileChange& file : record.files) {
      out_ << "  " << file.change << ' ' << Visible(file.path) << Describe(file.after) << '\n';
    }
    if (record.files.empty()) out_ << "  none\n";
    Heading("mounts");
    RenderMounts(record);
  }

  void operator()(const HandOver& hand_over) {
    std::string title = StringPrintf("hand-over, mode %d", hand_over.mode);
    if (hand_over.mode == kFilledMap) title = "filled map";
    Line(title + StringPrintf(": %zu %s", hand_over.entries.size(),
                              hand_over.entries.size() == 1 ? "property" : "properties"));
    for (const Entry& entry : hand_over.entries) {
      out_ << "    " << Property(entry.name, entry.value) << Was(entry.old, entry.value) << '\n';
    }
  }

  void operator()(const LogLine& line) {
    if (line.severity < options_.log) return;
    const char letter = "VDIWEF"[static_cast<int>(line.severity)];
    std::string text = letter + (" " + Visible(line.message));
    if (options_.log == Severity::kVerbose)
      text += StringPrintf(" (%s:%u)", line.file.c_str(), line.line);
    const char* colour = line.severity >= Severity::kError ? kRed : kYellow;
    Line(line.severity >= Severity::kWarning ? Coloured(colour, text) : text);
  }

  void operator()(const FileEvent& file) {
    if (IsDetail(file) && options_.log != Severity::kVerbose) return;
    const std::string path = " " + Visible(file.path);
    if (file.error != 0) return Failure(Words(file.op).failed + path, file.error);
    const bool anew = file.op == FileOp::kWrite && file.existed;
    Line((anew ? "rewrote" : Words(file.op).done) + path + Describe(file.after));
  }

  void operator()(const MountEvent& mount) {
    const std::string what =
        Visible(mount.source) + " on " + Visible(mount.target) + " " + MountFlagNames(mount.flags);
    if (mount.error != 0) return Failure("mount " + what, mount.error);
    Line("mounted " + what);
  }

  void operator()(const PropertySet& set) {
    Line((set.refused ? "set refused " : "set ") + Property(set.name, set.value) +
         Was(set.old, set.value));
  }

  void operator()(const PropertyLine& /*line*/) {}  // the hand-over says what came of it

 private:
  void RenderStep(const Step& step) {
    std::string title = (step.post ? "post " : "call ") + Visible(step.name);
    if (!step.argument.empty()) title += "=" + Visible(step.argument);
    Heading(title);
    for (const Event& event : step.events) {
      thread_ = event.thread;
      std::visit(*this, event.what);
    }
    thread_ = false;
    if (!step.error.empty()) Line(Coloured(kRed, "boot ends here: " + step.error));
  }

  void RenderMounts(const BootRecord& record) {
    bool any = false;
    for (const Step& step : record.steps) {
      for (const Event& event : step.events) {
        const auto* mount = std::get_if<MountEvent>(&event.what);
        if (mount == nullptr || mount->error != 0) continue;
        any = true;
        (*this)(*mount);
      }
    }
    if (!any) out_ << "  none\n";
  }

  // What is shown only to those who ask for everything: looking, expected refusals, and what the
  // state beside a write tells already.
  static bool IsDetail(const FileEvent& file) {
    if (file.op == FileOp::kWrite) return false;
    if (file.op == FileOp::kMkdir) return file.error == EEXIST;
    if (file.op == FileOp::kUnlink) return file.error == ENOENT;
    return file.op != FileOp::kChown || file.error == 0;
  }

  std::string Was(const std::string& old, const std::string& value) const {
    return old.empty() || old == value ? "" : Coloured(kDim, "  (was [" + Visible(old) + "])");
  }

  void Failure(const std::string& what, int error) {
    Line(Coloured(kRed, "cannot " + what + ": " + strerror(error)));
  }

  void Heading(const std::string& text) {
    out_ << (first_ ? "" : "\n") << Coloured(kBold, text) << '\n';
    first_ = false;
  }

  void Line(const std::string& text) {
    out_ << "  " << text << (thread_ ? Coloured(kDim, "  (bind thread)") : "") << '\n';
  }

  std::string Coloured(const char* colour, const std::string& text) const {
    return options_.colour ? StringPrintf("\033[%sm", colour) + text + "\033[0m" : text;
  }

  const TextOptions& options_;
  std::ostream& out_;
  bool thread_ = false;
  bool first_ = true;
};

}  // namespace

void RenderText(const BootRecord& record, const TextOptions& options, std::ostream& out) {
  TextRenderer(options, out).Render(record);
}

bool ColourWanted() {
  const char* no_colour = getenv("NO_COLOR");
  return isatty(STDOUT_FILENO) == 1 && (no_colour == nullptr || *no_colour == '\0');
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
      visible += StringPrintf("\\x%02x", static_cast<unsigned>(byte));
    } else {
      visible += byte;
    }
  }
  return visible;
}

std::string MountFlagNames(unsigned long flags) {
  static constexpr std::pair<unsigned long, const char*> kNames[] = {
      {MS_RDONLY, "MS_RDONLY"},   {MS_NOSUID, "MS_NOSUID"},   {MS_NODEV, "MS_NODEV"},
      {MS_NOEXEC, "MS_NOEXEC"},   {MS_REMOUNT, "MS_REMOUNT"}, {MS_DIRSYNC, "MS_DIRSYNC"},
      {MS_NOATIME, "MS_NOATIME"}, {MS_BIND, "MS_BIND"},       {MS_REC, "MS_REC"},
  };
  std::string names;
  for (const auto& [flag, name] : kNames) {
    if ((flags & flag) == 0) continue;
    names += (names.empty() ? "" : "|") + std::string(name);
    flags &= ~flag;
  }
  if (flags != 0 || names.empty())
    names += (names.empty() ? "" : "|") + StringPrintf("%#lx", flags);
  return names;
}

}  // namespace extprop
