// The way into the system log: which level goes there at which priority, the facility and the
// identification, and logSysEvent to write one line. The settings are plain values here; the
// configuration variables reach them through common/logconfig.
#pragma once

#include <string>

#include "common/loglevel.h"
#include "errutils/statuss.h"

inline constexpr int not_logged = -1;  // as a priority or a facility: nothing is handed over

// The priority (LOG_EMERG to LOG_DEBUG) of a level, or not_logged. At first WRN, ERR, VSE and the
// diagnostic level have one.
int getOSloglev(LogLevel level);
void setOSloglev(LogLevel level, int priority);

// The facility (LOG_LOCAL0, ...), or not_logged while system logging is off. At first LOG_LOCAL0.
// The C library lets no process but the kernel use LOG_KERN: it becomes LOG_USER.
int getSyslogFacility();
void setSyslogFacility(int facility);
// The identification of every line, at first "KORV".
void setSyslogIdent(const std::string& ident);

// Translate names ("warning", "local0"); empty and "none" give not_logged. False: no such name.
bool findOSloglev(const std::string& name, int& priority);
bool findSyslogFacility(const std::string& name, int& facility);

// Whether logSysEvent hands lines of the level over.
bool isSystemLogged(LogLevel level);
// Whether standard error ends in the journal that the system log feeds too, as systemd sets it up
// for a service: a line written to both would stand there twice, once without its priority.
bool systemLogHoldsStandardError();

// Writes one line to the system log at the priority of the level, or nothing when there is none or
// system logging is off. The status is always cleared: syslog(3) reports no failures.
void logSysEvent(LogLevel level, const char* text, Status& status);
