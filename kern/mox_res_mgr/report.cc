#include "kern/mox_res_mgr/report.h"

#include <cstdio>
#include <cstring>

#include "common/base/printable.h"
#include "common/logger.h"

namespace resmgr {

Status stat;

namespace {

// Tags every report before main runs.
struct Dummy {
  Dummy() { logmsgPrefix = "RESMGR"; }
};
const Dummy dummy;

}  // namespace

void emit_korv_error(SourcePosition at) {
  if (stat.number == MOX_NORMAL) return;
  std::printf("%s ERROR Error number %d severity %d %s", logmsgPrefix, stat.number, stat.severity,
              stat.getText());
  if (stat.os_error > 0) std::printf(" OS error message: %s", stat.os_text);
  std::printf("\n");
  std::fflush(stdout);

  pushTraceStatus(&stat, at);
  logmsg.start(LEVEL_INF, at.file, at.line);
  stat.debug("emit_korv_error");
  logmsg.logg();
}

void log_os_error(const std::string& activity, const std::string& object, int os_error,
                  SourcePosition at) {
  logLine(LEVEL_ERR, activity + " " + printable(object) + ": " + std::strerror(os_error), at);
}

bool output_written() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  logLine(LEVEL_ERR, "standard output could not be written, a part of the reports is lost");
  return false;
}

}  // namespace resmgr
