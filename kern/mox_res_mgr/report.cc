#include "kern/mox_res_mgr/report.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "common/base/printable.h"
#include "common/logger.h"

namespace resmgr {

Status stat;
std::FILE* report_stream = stdout;

namespace {

// Sets the prefix of error blocks and log lines before main runs.
struct Dummy {
  Dummy() { logmsgPrefix = "RESMGR"; }
};
const Dummy dummy;

}  // namespace

void say(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): clang 14 does not see the va_start
  std::vfprintf(report_stream, format, arguments);
  va_end(arguments);
}

void emit_korv_error(SourcePosition at) {
  if (stat.number == MOX_NORMAL) return;
  say("%s ERROR Error number %d severity %d %s", logmsgPrefix, stat.number, stat.severity,
      stat.getText());
  if (stat.os_error > 0) say(" OS error message: %s", stat.os_text);
  say("\n");
  std::fflush(report_stream);

  pushTraceStatus(&stat, at);
  logmsg.start(LEVEL_INF, at.file, at.line);
  stat.debug("emit_korv_error");
  logmsg.logg();
}

void log_os_error(const std::string& activity, const std::string& object, int os_error,
                  SourcePosition at) {
  logLine(LEVEL_ERR, activity + " " + printable(object) + ": " + std::strerror(os_error), at);
}

void crash() {
  say("abnormal termination, exit(1)\n");
  output_written();
  std::exit(1);
}

bool output_written() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  logLine(LEVEL_ERR, "standard output could not be written, a part of the reports is lost");
  return false;
}

}  // namespace resmgr
