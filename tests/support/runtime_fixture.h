// The start of every test of the runtime: variables, logger and environment as in a fresh process,
// apart from time stamps, which are off; and a folder of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <tuple>

#include "common/cvariables.h"
#include "common/logger.h"
#include "common/variables.h"
#include "tests/support/sandbox.h"

namespace fs = std::filesystem;

// The line about a slow write, which any write is on a host that is busy enough.
inline const std::string complaint =
    "([A-Z]{1,6}| {6}) BEWARE .{16} [A-Z][a-z ]{1,20} took too long \\([0-9]{3,} msecs\\)\n";

// Without such lines, with P for the number of this process in the heads of log lines, T for a
// time.
inline std::string plain(std::string text) {
  const std::pair<std::string, const char*> rules[] = {
      {complaint, ""},
      {"(p:|\\[)" + std::to_string(getpid()) + "( |\\])", "$1P$2"},
      {"p:P t:[0-9]+", "p:P T"}};
  for (const auto& [from, to] : rules) text = std::regex_replace(text, std::regex(from), to);
  return text;
}

// What code writes to standard output (through its descriptor, too), a bar, and to standard error.
inline std::string printed(const std::function<void()>& code) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  code();
  const std::string out = testing::internal::GetCapturedStdout();
  return plain(out + "|" + testing::internal::GetCapturedStderr());
}

class RuntimeTest : public testing::Test {
 protected:
  RuntimeTest() {
    clearenv();
    umask(0);
    logmsgPrefix = nullptr;
    logmsgNodeno = -1;
    VarSet::instance().setDefaults();
    set("historytime", "0");
  }
  static void set(const char* name, const std::string& value) {
    EXPECT_EQ(varSetChar(name, value.c_str()), 0) << name;
    logmsg.newConfig();
  }
  // The variable's text; of several, with a bar between them.
  static std::string value(const char* name) { return VarSet::instance().get(name)->text(); }
  static std::string value(const char* name, auto... names) {
    return value(name) + "|" + value(names...);
  }

  // A message of so many pieces.
  static void log(int level, const std::string& piece = "text\n", int pieces = 1) {
    logmsg.start(static_cast<LogLevel>(level), "somewhere.cc", 7);
    for (int i = 0; i < pieces; ++i) logmsg.txt(piece.c_str());
    logmsg.logg();
  }
  static void log_at_all_levels() {
    for (int level = LEVEL_DBG; level <= LEVEL_TST + 1; ++level) log(level);
  }
  std::string read(const std::string& name) const { return plain(read_file(folder_ / name)); }

  const TempFolder folder_;
};
