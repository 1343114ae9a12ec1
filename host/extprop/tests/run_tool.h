#pragma once

#include <android-base/file.h>
#include <gtest/gtest.h>

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
  const std::string out = scratch / "out", err = scratch / "err";
  const std::string command = "{ " + before + " " EXTPROP " " + arguments + "; }";
  const int status = system((command + " >" + out + " 2>" + err).c_str());
  Outcome outcome = {WEXITSTATUS(status), "", ""};
  android::base::ReadFileToString(out, &outcome.out);
  android::base::ReadFileToString(err, &outcome.err);
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

inline bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Expects nothing but one line of error, which has `message`.
inline void ExpectRefusal(const Outcome& outcome, int status, const std::string& message) {
  EXPECT_EQ(outcome.status, status) << message;
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err.find("extprop: "), 0u) << outcome.err;
  EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  EXPECT_TRUE(Has(outcome.err, message)) << outcome.err << " instead of " << message;
}
