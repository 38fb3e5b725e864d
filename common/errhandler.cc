// The reports of a status: what errutils/statuss.h declares and only a room above the logger can
// define.
#include <cstdlib>

#include "common/logger.h"
#include "errutils/statuss.h"

namespace {

void append_os_message(const Status& status) {
  if (status.os_text[0] == '\0') return;
  logmsg.txt("OS message: ");
  logmsg.txt(status.os_text);
  logmsg.chr('\n');
}

void append_position(const char* file, int line) {
  logmsg.txt(file);
  logmsg.printInt("' line ", line, "\n");
}

void append_trace(const Status& status) {
  int written = 0;
  for (; written < status.trace_count && written < Status::max_trace; ++written) {
    logmsg.printFix(" ", static_cast<unsigned>(written), 4, 0);
    logmsg.txt("  '");
    append_position(status.trace[written].file, status.trace[written].line);
  }
  if (written == Status::max_trace) {
    logmsg.printInt("Trace tracecnt overflow (", status.trace_count, ").\n");
  }
}

void log_diagnostic(Status& status) {
  logmsg.start(LEVEL_DIA, __FILE__, __LINE__);
  status.printDiagnosticError();
  logmsg.logg();
}

}  // namespace

void Status::printError() {
  logmsg.txt("Level='");
  logmsg.txt(getNameSeverity_e(severity));
  logmsg.printIntX("' (0x", static_cast<unsigned>(severity), "), Message='");
  logmsg.txt(getText());
  logmsg.printIntX("' (0x", static_cast<unsigned>(number), ")\nSet in '");
  append_position(file, line);
  append_trace(*this);
  append_os_message(*this);
}

void Status::printSysError() {
  logmsg.printIntX(" (0x", static_cast<unsigned>(number), ")   Message='");
  logmsg.txt(getText());
  logmsg.txt("'\n");
  append_os_message(*this);
}

void Status::printDiagnosticError() {
  logmsg.txt(getText());
  logmsg.chr('\n');
  append_os_message(*this);
}

void Status::debug(const char* label) {
  if (label != nullptr) {
    logmsg.txt(label);
    logmsg.chr(' ');
  }
  printError();
}

void Status::report(const char* label) {
  logmsg.start(LEVEL_ERR, __FILE__, __LINE__);
  debug(label);
  logmsg.logg();
  if (severity >= SEV_SYSTEMERR) log_diagnostic(*this);
}

void Status::abort(const char* message) {
  logmsg.start(LEVEL_ERR, __FILE__, __LINE__);
  if (message != nullptr) {
    logmsg.txt("System aborted with message: '");
    logmsg.txt(message);
    logmsg.txt("'\n");
  } else {
    logmsg.txt("System aborted:\n");
  }
  printError();
  logmsg.logg();
  log_diagnostic(*this);

  logmsg.start(LEVEL_INF, __FILE__, __LINE__);
  logmsg.txt("exit(1)\n");
  logmsg.logg();
  std::exit(EXIT_FAILURE);
}
