#include "host/extprop/render/render_text.h"

#include <string.h>
#include <sys/mount.h>

#include <android-base/format.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>
#include <vector>

namespace extprop {

namespace {

// What was done and, after "cannot", what was not; both by FileOp.
constexpr const char* kDone[] = {"read",  "wrote", "made directory", "deleted", "changed owner of",
                                 "found", "listed"};
constexpr const char* kNotDone[] = {"read", "write", "make directory", "delete", "change owner of",
                                    "find", "list"};

std::string MountFlagNames(unsigned long flags) {
  static constexpr std::pair<unsigned long, const char*> kNames[] = {
      {MS_RDONLY, "MS_RDONLY"},   {MS_NOSUID, "MS_NOSUID"},   {MS_NODEV, "MS_NODEV"},
      {MS_NOEXEC, "MS_NOEXEC"},   {MS_REMOUNT, "MS_REMOUNT"}, {MS_DIRSYNC, "MS_DIRSYNC"},
      {MS_NOATIME, "MS_NOATIME"}, {MS_BIND, "MS_BIND"},       {MS_REC, "MS_REC"},
  };
  std::vector<std::string> names;
  for (const auto& [flag, name] : kNames) {
    if ((flags & flag) != 0) names.emplace_back(name);
    flags &= ~flag;
  }
  if (flags != 0 || names.empty()) names.push_back(android::base::StringPrintf("%#lx", flags));
  return android::base::Join(names, '|');
}

std::string Property(const std::string& name, const std::string& value) {
  return "[" + Visible(name) + "]: [" + Visible(value) + "]";
}

std::string Was(const std::string& old, const std::string& value) {
  return old.empty() || old == value ? "" : "(was [" + Visible(old) + "])";
}

std::string Describe(const FileState& state) {
  if (state.type.empty()) return "";
  const bool sized = state.type == "file";
  return (sized ? Count(static_cast<size_t>(state.size), "byte") + "  " : "") +
         fmt::format("{:04o} {}:{}", state.mode, state.uid, state.gid);
}

// What the summary shows of a hand-over: of a map that the host had filled, which is mostly new,
// and of what the device had stored, what replaces another value.
bool Changes(const HandOver& hand_over, const Entry& entry) {
  if (!entry.refused.empty()) return true;
  return entry.old != entry.value && (hand_over.mode >= 0 || !entry.old.empty());
}

// What is shown only to those who ask for everything: looking, expected refusals, and what the
// state beside a write tells already.
bool IsDetail(const FileEvent& file) {
  if (file.op == FileOp::kWrite) return false;
  if (file.op == FileOp::kMkdir) return file.error == EEXIST;
  if (file.op == FileOp::kUnlink) return file.error == ENOENT;
  return file.op != FileOp::kChown || file.error == 0;
}

std::vector<const MountEvent*> MountsOf(const BootRecord& record) {
  auto mounts = Only<MountEvent>(record);
  const auto failed = [](const MountEvent* mount) { return mount->error != 0; };
  mounts.erase(std::remove_if(mounts.begin(), mounts.end(), failed), mounts.end());
  return mounts;
}

std::string Summary(const BootRecord& record) {
  size_t replaced = 0;
  for (const auto& [name, value] : record.initial) {
    if (!value.empty() && ValueIn(record.properties, name) != value) ++replaced;
  }
  size_t refused = record.refused.size();
  for (const HandOver* hand_over : Only<HandOver>(record)) {
    for (const Entry& entry : hand_over->entries) refused += entry.refused.empty() ? 0 : 1;
  }
  std::map<Severity, size_t> logged;
  for (const LogLine* line : Only<LogLine>(record)) ++logged[line->severity];
  return fmt::format(
      "{}: {} before, {} after, {} of the first replaced{}; {}, {}; logged: {}, {}. "
      "--all shows the whole.",
      Count(record.steps.size(), "step"), Count(record.initial.size(), "property"),
      record.properties.size(), replaced, refused == 0 ? "" : fmt::format(", {} refused", refused),
      Count(record.files.size(), "changed file"), Count(MountsOf(record).size(), "mount"),
      Count(logged[Severity::kError], "error"), Count(logged[Severity::kWarning], "warning"));
}

class TextRenderer {
 public:
  TextRenderer(const TextOptions& options, std::ostream& out) : options_(options), out_(out) {}

  void Render(const BootRecord& record) {
    if (!options_.all) out_ << Summary(record) << '\n';
    first_ = options_.all;
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
    const auto mounts = MountsOf(record);
    for (const MountEvent* mount : mounts) (*this)(*mount);
    if (mounts.empty()) Line("none");
  }

  void operator()(const HandOver& hand_over) {
    std::string title = fmt::format("hand-over, mode {}", hand_over.mode);
    if (hand_over.mode == kFilledMap) title = "filled map";
    if (hand_over.mode == kStoredProperties) title = "stored properties";
    title += ": " + Count(hand_over.entries.size(), "property");
    const auto is_shown = [&](const Entry& entry) {
      return options_.all || Changes(hand_over, entry);
    };
    const auto& entries = hand_over.entries;
    const auto is_refused = [](const Entry& entry) { return !entry.refused.empty(); };
    const auto refused = std::count_if(entries.begin(), entries.end(), is_refused);
    const auto changed = std::count_if(entries.begin(), entries.end(), is_shown) - refused;
    const std::string how = hand_over.mode < 0 ? " replaced" : " changed";
    if (!options_.all) title += ", " + (changed == 0 ? "none" : std::to_string(changed)) + how;
    if (!options_.all && refused != 0) title += fmt::format(", {} refused", refused);
    Line(title);
    for (const Entry& entry : entries) {
      if (is_shown(entry)) RenderEntry(entry);
    }
  }

  void operator()(const LogLine& line) {
    if (line.severity < options_.log) return;
    std::string text = "VDIWEF"[static_cast<size_t>(line.severity)] + (" " + Visible(line.message));
    if (options_.log == Severity::kVerbose) text += fmt::format(" ({}:{})", line.file, line.line);
    const char* style = line.severity >= Severity::kError ? kRed : kYellow;
    Line(text, "", line.severity >= Severity::kWarning ? style : "");
  }

  void operator()(const FileEvent& file) {
    if (IsDetail(file) && options_.log != Severity::kVerbose) return;
    const auto op = static_cast<size_t>(file.op);
    const std::string path = " " + Visible(file.device_path.empty() ? file.path : file.device_path);
    if (file.error != 0) return Failure(kNotDone[op] + path, file.error);
    if (!options_.all && options_.log != Severity::kVerbose) return;  // told at the end
    const bool anew = file.op == FileOp::kWrite && file.existed;
    Line((anew ? "rewrote" : kDone[op]) + path, Describe(file.after));
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
  void RenderStep(const Step& step) {
    Heading((step.post ? "" : "call ") + Visible(TitleOf(step)));
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

  void Failure(const std::string& what, int error) {
    Line("cannot " + what + ": " + strerror(error), "", kRed);
  }

  void Heading(const std::string& text) {
    out_ << (first_ ? "" : "\n") << Styled(kBold, text) << '\n';
    first_ = false;
  }

  void Line(const std::string& text, const std::string& note = "", const char* style = "") {
    const std::string thread = thread_ ? "(bind thread)" : "";
    Put(2, text, note + (note.empty() || !thread_ ? "" : "  ") + thread, style);
  }

  void Put(size_t indent, const std::string& text, const std::string& note, const char* style) {
    out_ << std::string(indent, ' ') << Styled(style, text);
    out_ << (note.empty() ? "" : "  " + Styled(kDim, note)) << '\n';
  }

  std::string Styled(const char* style, const std::string& text) const {
    return options_.colour && *style != '\0' ? Coloured(style, text) : text;
  }

  const TextOptions& options_;
  std::ostream& out_;
  bool thread_ = false;
  bool first_ = true;
};

}  // namespace

void WarnOfUnreadable(const BootRecord& record, std::map<std::string, std::string> others) {
  others.merge(Unreadable(record));
  for (const auto& [path, why] : others) {
    fprintf(stderr, "extprop: warning: not looked into: %s: %s\n", Visible(path).c_str(),
            why.c_str());
  }
}

void RenderText(const BootRecord& record, const TextOptions& options, std::ostream& out) {
  TextRenderer(options, out).Render(record);
}

}  // namespace extprop
