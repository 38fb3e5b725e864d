#include "kern/mox_res_mgr/report.h"

#include <cstdio>
#include <cstring>

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

void emit_korv_error(const char* file, int line) {
  if (stat.number == MOX_NORMAL) return;
  std::printf("%s ERROR Error number %d severity %d %s", logmsgPrefix, stat.number, stat.severity,
              stat.getText());
  if (stat.os_error > 0) std::printf(" OS error message: %s", stat.os_text);
  std::printf("\n");
  std::fflush(stdout);

  pushTraceStatus(&stat, file, line);
  logmsg.start(LEVEL_INF, file, line);
  stat.debug("emit_korv_error");
  logmsg.logg();
}

void log_os_error(const char* activity, const char* object, int os_error) {
  logmsg.start(LEVEL_ERR, HERE);
  logmsg.txt(activity);
  logmsg.chr(' ');
  // The logger refuses pieces that are longer than its messages.
  logmsg.txt(object, static_cast<int>(strnlen(object, 1000)));
  logmsg.txt(": ");
  logmsg.txt(std::strerror(os_error));
  logmsg.chr('\n');
  logmsg.logg();
}

bool output_written() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return true;
  logmsg.start(LEVEL_ERR, HERE);
  logmsg.txt("standard output could not be written, a part of the reports is lost\n");
  logmsg.logg();
  return false;
}

}  // namespace resmgr
