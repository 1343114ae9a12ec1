#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include <cstring>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/property_input.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/render_html.h"
#include "host/extprop/render/render_text.h"

namespace extprop {

namespace {

namespace fs = std::filesystem;
using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

// Opens the directory that takes the resulting tree, made if there is none.
Result<unique_fd> OpenKeep(const std::string& path, const std::string& tree) {
  if (IsInside(path, tree)) return Error() << "--keep " << path << ": lies in " << tree;
  if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
    return ErrnoError() << "--keep " << path << ": cannot make the directory";
  }
  unique_fd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd < 0) return ErrnoError() << "--keep " << path << ": cannot open the directory";
  if (!fs::is_empty(path)) return Error() << "--keep " << path << ": is not an empty directory";
  return fd;
}

void Print(const Options& options, const BootRecord& record) {
  if (options.json) {
    std::cout << JsonText(ToJson(record)) << '\n';
  } else if (options.html.empty()) {
    const Severity level = options.log.value_or(options.all ? Severity::kInfo : Severity::kError);
    RenderText(record, {options.all, level, ColourWanted(), TerminalWidth()}, std::cout);
  }
}

}  // namespace

bool IsInside(const std::string& path, const std::string& directory) {
  const std::string inner = fs::weakly_canonical(path).string() + "/";
  const std::string outer = fs::canonical(directory).string() + "/";
  return outer == "//" || inner.compare(0, outer.size(), outer) == 0;
}

int Boot(const Options& options) {
  Result<BootPlan> plan = MakePlan(options.boot);
  if (!plan.ok()) return Fail(kBadInput, plan.error().message());
  unique_fd keep_fd;
  if (!options.keep.empty()) {
    Result<unique_fd> opened = OpenKeep(options.keep, plan->tree);
    if (!opened.ok()) return Fail(kBadInput, opened.error().message());
    keep_fd = std::move(*opened);
    plan->keep_fd = keep_fd.get();
  }
  for (const auto& [option, path] :
       {std::pair("--save-props ", options.save_props), std::pair("--html ", options.html)}) {
    if (path.empty() || !IsInside(path, plan->tree)) continue;
    return Fail(kBadInput, option + path + ": lies in " + plan->tree);
  }
  plan->lines = !options.html.empty();

  Result<BootRecord> record = RunBoot(*plan);
  if (!record.ok()) return Fail(kFailed, record.error().message());
  Print(options, *record);
  if (!std::cout.flush()) return Fail(kFailed, "cannot write the standard output");

  if (!options.html.empty() &&
      !android::base::WriteStringToFile(RenderHtml(options.command_line, plan->tree, *record),
                                        options.html, true)) {
    return Fail(kBadInput, "--html " + options.html + ": " + strerror(errno));
  }
  if (!options.save_props.empty()) {
    if (!android::base::WriteStringToFile(StoredText(*record), options.save_props)) {
      return Fail(kBadInput, "--save-props " + options.save_props + ": " + strerror(errno));
    }
  }
  return ReportStep(kFailed, *record);
}

}  // namespace extprop
