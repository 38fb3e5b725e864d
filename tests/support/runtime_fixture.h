// The start of every test of the runtime: variables, logger and environment as in a fresh process,
// apart from time stamps, which are off; and a folder of the test's own.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>

#include "common/cvariables.h"
#include "common/logger.h"
#include "common/variables.h"
#include "tests/support/sandbox.h"

// With P for the number of this process in the heads of log lines.
inline std::string plain(const std::string& text) {
  const std::regex process("(p:|\\[)" + std::to_string(getpid()) + "( |\\])");
  return std::regex_replace(text, process, "$1P$2");
}

// Without the lines about slow writes, which any write is on a host that is busy enough.
inline std::string without_complaints(std::string text) {
  const std::string mark = "took too long (";
  for (std::size_t at = 0; (at = text.find(mark)) != std::string::npos;) {
    const std::size_t begin = text.rfind('\n', at) + 1;
    text.erase(begin, text.find('\n', at) + 1 - begin);
  }
  return text;
}

// What code writes to standard output (through its descriptor, too), a bar, and to standard error.
inline std::string printed(const std::function<void()>& code) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  code();
  const std::string out = testing::internal::GetCapturedStdout();
  const std::string err = testing::internal::GetCapturedStderr();
  return plain(without_complaints(out) + "|" + without_complaints(err));
}

class RuntimeTest : public testing::Test {
 protected:
  RuntimeTest() {
    clearenv();
    logmsgPrefix = nullptr;
    logmsgNodeno = -1;
    VarSet::instance().setDefaults();
    set("historytime", "0");
  }
  static void set(const char* name, const std::string& value) {
    EXPECT_EQ(varSetChar(name, value.c_str()), 0) << name;
    logmsg.newConfig();
  }
  static std::string value(const char* name) { return VarSet::instance().get(name)->text(); }

  static void log(int level, const char* message = "text\n") {
    logmsg.start(static_cast<LogLevel>(level), "somewhere.cc", 7);
    logmsg.txt(message);
    logmsg.logg();
  }
  static void log_at_all_levels() {
    for (int level = LEVEL_DBG; level <= LEVEL_TST + 1; ++level) log(level);
  }
  std::string read(const std::string& name) const {
    return plain(without_complaints(read_file(folder_ / name)));
  }

  const TempFolder folder_;
};
