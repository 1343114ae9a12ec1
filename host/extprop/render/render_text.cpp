#include "host/extprop/render/render_text.h"

#include <string.h>
#include <sys/mount.h>

#include <android-base/stringprintf.h>

#include <algorithm>
#include <cerrno>
#include <map>
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

std::string Count(size_t number, const std::string& noun) {
  if (number == 1) return "1 " + noun;
  const bool in_y = noun.back() == 'y';
  return std::to_string(number) + " " +
         (in_y ? noun.substr(0, noun.size() - 1) + "ies" : noun + "s");
}

std::string Describe(const FileState& state) {
  if (state.type.empty()) return "";
  std::string size;
  if (state.type == "file") size = Count(static_cast<size_t>(state.size), "byte") + "  ";
  return size + StringPrintf("%04o %u:%u", state.mode, state.uid, state.gid);
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

bool Replaces(const Entry& entry) {
  return !entry.old.empty() && entry.old != entry.value;
}

// What the summary shows of a hand-over: of a map that the host had filled, which is mostly new,
// and of what the device had stored, what replaces another value.
bool Changes(const HandOver& hand_over, const Entry& entry) {
  if (!entry.refused.empty()) return true;
  return hand_over.mode < 0 ? Replaces(entry) : entry.old != entry.value;
}

std::string Title(const HandOver& hand_over) {
  if (hand_over.mode == kFilledMap) return "filled map";
  if (hand_over.mode == kStoredProperties) return "stored properties";
  return StringPrintf("hand-over, mode %d", hand_over.mode);
}

struct Tally {
  size_t replaced = 0;
  size_t refused = 0;
  size_t mounts = 0;
  std::map<Severity, size_t> log;

  explicit Tally(const BootRecord& record) : refused(record.refused.size()) {
    for (const auto& [name, value] : record.initial) {
      const auto now = record.properties.find(name);
      if (!value.empty() && (now == record.properties.end() || now->second != value)) ++replaced;
    }
    for (const Step& step : record.steps) {
      for (const Event& event : step.events) std::visit(*this, event.what);
    }
  }
  void operator()(const HandOver& hand_over) {
    for (const Entry& entry : hand_over.entries) refused += entry.refused.empty() ? 0 : 1;
  }
  void operator()(const LogLine& line) { ++log[line.severity]; }
  void operator()(const MountEvent& mount) { mounts += mount.error == 0 ? 1 : 0; }
  template <typename T>
  void operator()(const T& /*other*/) {}
};

class TextRenderer {
 public:
  TextRenderer(const TextOptions& options, std::ostream& out) : options_(options), out_(out) {}

  void Render(const BootRecord& record) {
    if (!options_.all) RenderSummary(record);
    if (!record.refused.empty()) Heading("refused to boot with");
    for (const Entry& entry : record.refused) RenderEntry(entry);
    for (const Step& step : record.steps) RenderStep(step);
    if (options_.all) {
      Heading("resulting properties");
      for (const auto& [name, value] : record.properties) out_ << Property(name, value) << '\n';
    }
    Heading("changed files");
    for (const FileChange& file : record.files) {
      Line(file.change + ' ' + Visible(file.path), Describe(file.after));
    }
    if (record.files.empty()) Line("none");
    Heading("mounts");
    RenderMounts(record);
  }

  void operator()(const HandOver& hand_over) {
    std::string title = Title(hand_over) + ": " + Count(hand_over.entries.size(), "property");
    if (!options_.all) {
      const auto changed =
          std::count_if(hand_over.entries.begin(), hand_over.entries.end(),
                        [&](const Entry& entry) { return Changes(hand_over, entry); });
      const char* how = hand_over.mode < 0 ? " replaced" : " changed";
      title += ", " + (changed == 0 ? "none" : std::to_string(changed)) + how;
    }
    Line(title);
    for (const Entry& entry : hand_over.entries) {
      if (options_.all || Changes(hand_over, entry)) RenderEntry(entry);
    }
  }

  void operator()(const LogLine& line) {
    if (line.severity < options_.log) return;
    const char letter = "VDIWEF"[static_cast<int>(line.severity)];
    std::string text = letter + (" " + Visible(line.message));
    if (options_.log == Severity::kVerbose)
      text += StringPrintf(" (%s:%u)", line.file.c_str(), line.line);
    const char* colour = line.severity >= Severity::kError ? kRed : kYellow;
    Line(text, "", line.severity >= Severity::kWarning ? colour : "");
  }

  void operator()(const FileEvent& file) {
    if (IsDetail(file) && options_.log != Severity::kVerbose) return;
    const std::string path = " " + Visible(file.path);
    if (file.error != 0) return Failure(Words(file.op).failed + path, file.error);
    if (!options_.all && options_.log != Severity::kVerbose) return;  // told at the end
    const bool anew = file.op == FileOp::kWrite && file.existed;
    Line((anew ? "rewrote" : Words(file.op).done) + path, Describe(file.after));
  }

  void operator()(const MountEvent& mount) {
    const std::string what =
        Visible(mount.source) + " on " + Visible(mount.target) + " " + MountFlagNames(mount.flags);
    if (mount.error != 0) return Failure("mount " + what, mount.error);
    Line("mounted " + what);
  }

  void operator()(const PropertySet& set) {
    Line((set.refused ? "set refused " : "set ") + Property(set.name, set.value),
         Was(set.old, set.value));
  }

  void operator()(const PropertyLine& /*line*/) {}  // the hand-over says what came of it

 private:
  void RenderSummary(const BootRecord& record) {
    Tally tally(record);
    std::string text = Count(record.steps.size(), "step") + ": " +
                       Count(record.initial.size(), "property") + " before, " +
                       std::to_string(record.properties.size()) + " after, " +
                       std::to_string(tally.replaced) + " of the first replaced";
    if (tally.refused != 0) text += ", " + std::to_string(tally.refused) + " refused";
    text += "; " + Count(record.files.size(), "changed file") + ", " +
            Count(tally.mounts, "mount") +
            "; logged: " + Count(tally.log[Severity::kError], "error") + ", " +
            Count(tally.log[Severity::kWarning], "warning") + ". --all shows the whole.";
    for (const std::string& line : Wrap(text, options_.width, 0)) out_ << line << '\n';
    first_ = false;
  }

  void RenderStep(const Step& step) {
    std::string title = (step.post ? "post " : "call ") + Visible(step.name);
    if (!step.argument.empty()) title += "=" + Visible(step.argument);
    Heading(title);
    for (const Event& event : step.events) {
      thread_ = event.thread;
      std::visit(*this, event.what);
    }
    thread_ = false;
    if (!step.error.empty()) Line("boot ends here: " + step.error, "", kRed);
  }

  void RenderEntry(const Entry& entry) {
    const bool refused = !entry.refused.empty();
    Put(4, Property(entry.name, entry.value),
        refused ? "refused: " + entry.refused : Was(entry.old, entry.value), refused ? kRed : "");
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
    if (!any) Line("none");
  }

  // What is shown only to those who ask for everything: looking, expected refusals, and what the
  // state beside a write tells already.
  static bool IsDetail(const FileEvent& file) {
    if (file.op == FileOp::kWrite) return false;
    if (file.op == FileOp::kMkdir) return file.error == EEXIST;
    if (file.op == FileOp::kUnlink) return file.error == ENOENT;
    return file.op != FileOp::kChown || file.error == 0;
  }

  static std::string Was(const std::string& old, const std::string& value) {
    return old.empty() || old == value ? "" : "(was [" + Visible(old) + "])";
  }

  void Failure(const std::string& what, int error) {
    Line("cannot " + what + ": " + strerror(error), "", kRed);
  }

  void Heading(const std::string& text) {
    out_ << (first_ ? "" : "\n") << Coloured(kBold, text) << '\n';
    first_ = false;
  }

  void Line(const std::string& text, const std::string& note = "", const char* colour = "") {
    const std::string thread =
        thread_ ? (note.empty() ? "" : "  ") + std::string("(bind thread)") : "";
    Put(2, text, note + thread, colour);
  }

  // The notes go below the text where they do not fit behind it.
  void Put(size_t indent, const std::string& text, const std::string& note, const char* colour) {
    const std::string line = std::string(indent, ' ') + text;
    const size_t hang = indent + 4;
    const bool beside = options_.width == 0 || Columns(line) + 2 + Columns(note) <= options_.width;
    const char* separator = "";
    for (const std::string& part : Wrap(line, options_.width, hang)) {
      out_ << std::exchange(separator, "\n") << Coloured(colour, part);
    }
    if (!note.empty() && beside) out_ << "  " << Coloured(kDim, note);
    if (!note.empty() && !beside) {
      for (const std::string& part : Wrap(std::string(hang, ' ') + note, options_.width, hang)) {
        out_ << '\n' << Coloured(kDim, part);
      }
    }
    out_ << '\n';
  }

  std::string Coloured(const char* colour, const std::string& text) const {
    const bool plain = !options_.colour || *colour == '\0';
    return plain ? text : StringPrintf("\033[%sm", colour) + text + "\033[0m";
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
