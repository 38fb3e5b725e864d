// The start and the end of every test of the runtime: variables, logger and environment as in a
// fresh process, apart from time stamps, which are off; and a folder of the test's own.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "common/logger.h"
#include "common/variables.h"
#include "tests/scratch.h"

class RuntimeTest : public testing::Test {
 protected:
  RuntimeTest() {
    reset();
    set("historytime", "0");
  }
  ~RuntimeTest() override { reset(); }

  static void reset() {
    for (const char* name : {"MOX_PORTNO", "MOX_NODENO", "MOX_CONFIG", "MOX_EXTRA_CONFIG",
                             "MOX_STARTLEVEL", "MOX_DEBUGMASK", "MOX_SERVER", "MOX_KEY",
                             "MOX_SYSKEY", "KORV_SCHEMADIR", "MOX_SYSLOG_FACILITY"}) {
      unsetenv(name);
    }
    logmsgPrefix = nullptr;
    logmsgNodeno = -1;
    VarSet::instance().setDefaults();
    for (int level = 0; level < log_level_count; ++level) {
      logmsg.showTag(static_cast<LogLevel>(level), level != LEVEL_INF);
    }
    logmsg.newConfig();
  }
  static void set(const char* name, const std::string& value) {
    Status status;
    VarSet::instance().set(name, value.c_str(), status);
    ASSERT_FALSE(status.failed()) << status.getText();
    logmsg.newConfig();
  }
  static int number(const char* name) { return VarSet::instance().get(name)->number(); }
  static std::string text(const char* name) { return VarSet::instance().get(name)->text(); }

  static void log(LogLevel level, const char* message) {
    logmsg.start(level, "somewhere.cc", 7);
    logmsg.txt(message);
    logmsg.logg();
  }
  static void log_at_all_levels(const char* message) {
    for (int level = 0; level < log_level_count; ++level) {
      log(static_cast<LogLevel>(level), message);
    }
  }
  // What code writes, with log lines on the standard error of now.
  static Output logged(const std::function<void()>& code) {
    return output_of([&code] {
      logmsg.newConfig();
      code();
    });
  }

  const std::string process_ = "p:" + std::to_string(getpid()) + " ";  // in the head of a line
  const ScratchFolder folder_;
};
