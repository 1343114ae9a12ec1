#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>

#include "host/extprop/boot_record.h"
#include "host/extprop/commands.h"

namespace extprop {

int Fail(int status, const std::string& message) {
  std::string line = message;
  std::replace(line.begin(), line.end(), '\n', ' ');
  fprintf(stderr, "extprop: %s\n", line.c_str());
  return status;
}

int ReportStep(int status, const BootRecord& record) {
  for (const Step& step : record.steps) {
    if (!step.error.empty()) return Fail(status, step.name + ": " + step.error);
  }
  return kSuccess;
}

namespace {

int Run(int argc, char** argv) {
  CLI::App app("See what the extension property library makes of a device's files.", "extprop");
  app.require_subcommand(1);
  std::function<int()> chosen;
  AddBootCommand(&app, &chosen);
  AddExplainCommand(&app, &chosen);
  AddDiffCommand(&app, &chosen);
  AddCarriersCommand(&app, &chosen);
  AddCheckCommand(&app, &chosen);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    return Fail(kBadInput, error.what());
  }
  return chosen();
}

}  // namespace

}  // namespace extprop

int main(int argc, char** argv) {
  try {
    return extprop::Run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "extprop: %s\n", error.what());
    return extprop::kFailed;
  }
}
