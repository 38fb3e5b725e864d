#include "common/syseventlog.h"

#include <paths.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <string_view>

#include "common/base/eternal.h"
#include "common/logtrouble.h"

namespace {

struct Name {
  std::string_view name;
  int value;
};

constexpr Name priorities[] = {
    {"", not_logged},   {"none", not_logged}, {"emerg", LOG_EMERG},     {"alert", LOG_ALERT},
    {"crit", LOG_CRIT}, {"err", LOG_ERR},     {"warning", LOG_WARNING}, {"notice", LOG_NOTICE},
    {"info", LOG_INFO}, {"debug", LOG_DEBUG},
};

constexpr Name facilities[] = {
    {"", not_logged},       {"none", not_logged},   {"local0", LOG_LOCAL0}, {"local1", LOG_LOCAL1},
    {"local2", LOG_LOCAL2}, {"local3", LOG_LOCAL3}, {"local4", LOG_LOCAL4}, {"local5", LOG_LOCAL5},
    {"local6", LOG_LOCAL6}, {"local7", LOG_LOCAL7}, {"kern", LOG_KERN},     {"user", LOG_USER},
    {"mail", LOG_MAIL},     {"daemon", LOG_DAEMON}, {"auth", LOG_AUTH},     {"syslog", LOG_SYSLOG},
    {"lpr", LOG_LPR},       {"news", LOG_NEWS},     {"uucp", LOG_UUCP},     {"cron", LOG_CRON},
};

int priority_of_level[log_level_count] = {not_logged, not_logged, LOG_WARNING, LOG_ERR,
                                          LOG_ALERT,  LOG_ERR,    not_logged};
int current_facility = LOG_LOCAL0;

// The C library keeps the pointer that openlog is given.
std::string& currentIdent() {
  static Eternal<std::string> ident("KORV");
  return ident.value;
}

bool valid(LogLevel level) {
  return level >= LEVEL_DBG && level <= LEVEL_TST;
}

template <std::size_t N>
bool find(const Name (&names)[N], const std::string& name, int& value) {
  for (const Name& entry : names) {
    if (entry.name != name) continue;
    value = entry.value;
    return true;
  }
  return false;
}

}  // namespace

int getOSloglev(LogLevel level) {
  return valid(level) ? priority_of_level[level] : not_logged;
}

void setOSloglev(LogLevel level, int priority) {
  if (valid(level)) priority_of_level[level] = priority;
}

int getSyslogFacility() {
  return current_facility;
}

void setSyslogFacility(int facility) {
  current_facility = facility;
}

void setSyslogIdent(const std::string& ident) {
  closelog();
  currentIdent() = ident;
}

bool findOSloglev(const std::string& name, int& priority) {
  return find(priorities, name, priority);
}

bool findSyslogFacility(const std::string& name, int& facility) {
  return find(facilities, name, facility);
}

bool isSystemLogged(LogLevel level) {
  return getOSloglev(level) != not_logged && current_facility != not_logged;
}

bool systemLogHoldsStandardError() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat now {};
  return stream != nullptr && fstat(STDERR_FILENO, &now) == 0 &&
         stream == std::to_string(now.st_dev) + ':' + std::to_string(now.st_ino) &&
         access(_PATH_LOG, W_OK) == 0;
}

void logSysEvent(LogLevel level, const char* text, Status& status) {
  initStatus_s(&status);
  if (!isSystemLogged(level)) return;

  std::string_view line = text;
  if (line.ends_with('\n')) line.remove_suffix(1);
  const SlowWatch watch;
  openlog(currentIdent().c_str(), LOG_PID, LOG_USER);
  syslog(current_facility | getOSloglev(level), "%.*s", static_cast<int>(line.size()), line.data());
  const std::string complaint = watch.complaint("Event reporting");
  if (!complaint.empty()) printLogTrouble(complaint);
}
