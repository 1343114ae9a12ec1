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

// A copy into what is copied would not end. What is mounted has a second path, hence by identity.
void RefuseInsideLayers(const std::string& keep, const sandbox::PrivateRootOptions& root) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  for (const sandbox::Layer& layer : root.layers) {
    if (fs::is_symlink(layer.source, ignored)) continue;
    for (fs::path above = fs::weakly_canonical(keep); above.has_relative_path();
         above = above.parent_path()) {
      if (!fs::equivalent(above, layer.source, ignored)) continue;
      throw Failure(kBadInput, "--keep " + keep + ": lies in " + layer.source);
    }
  }
}

}  // namespace

int Boot(const Options& options) {
  BootPlan plan = OrFail(kBadInput, MakePlan(options.boot));
  unique_fd keep_fd;
  RefuseInside("--keep", options.keep, plan.tree);
  if (!options.keep.empty()) {
    RefuseInsideLayers(options.keep, plan.device.root);
    keep_fd = OrFail(kBadInput, OpenKeep(options.keep));
  }
  plan.keep_fd = keep_fd.get();
  RefuseInside("--save-props", options.save_props, plan.tree);
  RefuseInside("--html", options.html, plan.tree);
  plan.lines = !options.html.empty();

  const json told = OrFail(
      kFailed, RunBoot(plan, [&](const BootRecord& record) -> json {
        std::ostringstream text;
        if (options.json) {
          text << JsonText(ToJson(record)) << '\n';
        } else if (options.html.empty()) {
          Severity level = options.all ? Severity::kInfo : Severity::kError;
          if (!options.log.empty()) level = kLogLevels.at(options.log);
          RenderText(record, {options.all, level, ColourWanted(), TerminalWidth()}, text);
        }
        return {{"text", text.str()},
                {"page", plan.lines ? RenderHtml(options.command_line, plan.tree, record) : ""},
                {"stored", StoredText(record)},
                {"error", ErrorOf(record)}};
      }));
  std::cout << told["text"].get<std::string>();
  EndOutput(kFailed);
  WriteOutput("--html", options.html, told["page"]);
  WriteOutput("--save-props", options.save_props, told["stored"]);
  RequireWholeBoot(kFailed, told["error"]);
  return kSuccess;
}

}  // namespace extprop
