#include <fcntl.h>
#include <sys/stat.h>

#include <android-base/unique_fd.h>

#include <filesystem>
#include <iostream>
#include <sstream>

#include "host/extprop/boot/boot.h"
#include "host/extprop/boot/property_input.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/render/pages.h"
#include "host/extprop/render/render_text.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

namespace {

using android::base::unique_fd;

// Opens the directory that takes the resulting tree, made if there is none.
Result<unique_fd> OpenKeep(const std::string& path) {
  if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
    return ErrnoError() << "--keep " << path << ": cannot make the directory";
  }
  unique_fd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd < 0) return ErrnoError() << "--keep " << path << ": cannot open the directory";
  if (!std::filesystem::is_empty(path)) {
    return Error() << "--keep " << path << ": is not an empty directory";
  }
  return fd;
}

}  // namespace

int Boot(const Options& options) {
  BootPlan plan = OrFail(kBadInput, MakePlan(options.boot));
  unique_fd keep_fd;
  RefuseInside("--keep", options.keep, plan);  // a copy into what is copied would not end
  if (!options.keep.empty()) keep_fd = OrFail(kBadInput, OpenKeep(options.keep));
  plan.keep_fd = keep_fd.get();
  RefuseInside("--save-props", options.save_props, plan);
  RefuseInside("--html", options.html, plan);
  plan.lines = !options.html.empty();

  const json told = OrFail(
      kFailed, RunBoot(plan, [&](const BootRecord& record) -> json {
        std::ostringstream text;
        if (options.json) {
          text << JsonText(ToJson(record)) << '\n';
        } else if (options.html.empty()) {
          Severity level = options.all ? Severity::kInfo : Severity::kError;
          if (!options.log.empty()) level = kLogLevels.at(options.log);
          RenderText(record, {options.all, level, ColourWanted()}, text);
        }
        return {{"text", text.str()},
                {"page",
                 plan.lines ? RenderHtml(options.command_line, plan.device.directory, record) : ""},
                {"stored", StoredText(record)},
                {"error", ErrorOf(record)}};
      }));
  const std::string text = told["text"];
  if (options.json) {
    std::cout << text;
  } else {
    Print(text);
  }
  EndOutput(kFailed);
  WriteOutput("--html", options.html, told["page"]);
  WriteOutput("--save-props", options.save_props, told["stored"]);
  RequireWholeBoot(kFailed, told["error"]);
  return kSuccess;
}

}  // namespace extprop
