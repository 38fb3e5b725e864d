// The reports of a status. errutils/statuss.h declares them, but must not include the logger, which
// they need: they are defined here.
#include <cstdlib>

#include "common/logger.h"
#include "errutils/statuss.h"

namespace {

void appendOsMessage(const Status& status) {
  if (status.os_text[0] == '\0') return;
  logmsg.txt("OS message: ");
  logmsg.txt(status.os_text);
  logmsg.chr('\n');
}

void appendPosition(const char* file, int line) {
  logmsg.txt(file);
  logmsg.printInt("' line ", line, "\n");
}

void appendTrace(const Status& status) {
  int written = 0;
  for (; written < status.trace_count && written < Status::max_trace; ++written) {
    logmsg.printFix(" ", static_cast<unsigned>(written), 4, 0);
    logmsg.txt("  '");
    appendPosition(status.trace[written].file, status.trace[written].line);
  }
  if (written == Status::max_trace) {
    logmsg.printInt("Trace tracecnt overflow (", status.trace_count, ").\n");
  }
}

void logDiagnostic(Status& status) {
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
  appendPosition(file, line);
  appendTrace(*this);
  appendOsMessage(*this);
}

void Status::printSysError() {
  logmsg.printIntX(" (0x", static_cast<unsigned>(number), ")   Message='");
  logmsg.txt(getText());
  logmsg.txt("'\n");
  appendOsMessage(*this);
}

void Status::printDiagnosticError() {
  logmsg.txt(getText());
  logmsg.chr('\n');
  appendOsMessage(*this);
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
  if (severity >= SEV_SYSTEMERR) logDiagnostic(*this);
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
  logDiagnostic(*this);

  logmsg.start(LEVEL_INF, __FILE__, __LINE__);
  logmsg.txt("exit(1)\n");
  logmsg.logg();
  std::exit(EXIT_FAILURE);
}
