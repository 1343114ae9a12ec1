#pragma once

#include <android-base/file.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

#include "host/sandbox/tests/temp_tree.h"

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs the tool through the shell, with `before` in front of it.
inline Outcome RunTool(const std::string& arguments, const std::string& before = "") {
  TempTree scratch;
  const std::string command = before + " " + EXTPROP + " " + arguments + " >'" + (scratch / "out") +
                              "' 2>'" + (scratch / "err") + "'";
  Outcome outcome;
  const int status = system(command.c_str());
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  android::base::ReadFileToString(scratch / "out", &outcome.out);
  android::base::ReadFileToString(scratch / "err", &outcome.err);
  return outcome;
}

// Runs it with --json and returns what it printed.
inline nlohmann::json RunJson(const std::string& arguments, const std::string& before = "",
                              int status = 0) {
  const Outcome outcome = RunTool(arguments + " --json", before);
  EXPECT_EQ(outcome.status, status) << arguments;
  EXPECT_EQ(outcome.err, "");
  return nlohmann::json::parse(outcome.out, nullptr, false);
}
