#include "common/logconfig.h"

#include <cstdlib>
#include <string>
#include <vector>

#include "common/base/printable.h"
#include "common/logger.h"
#include "common/syseventlog.h"
#include "common/variables.h"

namespace {

constexpr const char* map_variables[log_level_count] = {
    "loglevmap_dbg", "loglevmap_inf", "loglevmap_wrn", "loglevmap_err",
    "loglevmap_vse", "loglevmap_dia", "loglevmap_tst"};

const std::string& valueOf(const char* name) {
  return VarSet::instance().get(name)->text();
}

const char* defaultOf(const char* name) {
  return VarSet::instance().get(name)->initialText();
}

void refuse(const std::string& value, Status& status) {
  status.set(SEV_SYSTEMERR, MOX_CONFIG_SYNTAX, 0, {value});
  logLine(LEVEL_INF, "initLogLevMap, ignoring unexpected value: " + printable(value));
}

void readFacility(Status& status) {
  const std::string& configured = valueOf("syslog_facility");
  int facility = not_logged;
  findSyslogFacility(configured, facility);
  if (const char* overriding = std::getenv("MOX_SYSLOG_FACILITY")) {
    logLine(LEVEL_INF, "MOX_SYSLOG_FACILITY=" + printable(overriding) +
                           " overrides syslog_facility=" + configured);
    if (!findSyslogFacility(overriding, facility)) refuse(overriding, status);
  }
  setSyslogFacility(facility);
  if (facility == not_logged) logLine(LEVEL_INF, "syslog logging disabled");
}

std::string withNode(const std::string& name, const char* separator) {
  if (name.empty() || logmsgNodeno < 0) return name;
  return name + separator + std::to_string(logmsgNodeno);
}

// By hand: a configured text is never a format.
std::string historyFileName(int shm_key) {
  std::string name = valueOf("historyfile");
  if (name.empty()) name = "/var/tmp/korv.out.%d";
  const std::string key = shm_key < 0 ? "" : std::to_string(shm_key);
  const std::string node = logmsgNodeno < 0 ? "" : std::to_string(logmsgNodeno);
  const std::string between = key.empty() || node.empty() ? "" : "-";

  const std::string& kind = valueOf("historysubst");
  std::string filling;
  if (kind == "shmkey") filling = key;
  if (kind == "nodeno") filling = node;
  if (kind == "nodenoshmkey") filling = node + between + key;
  if (kind == "shmkeynodeno") filling = key + between + node;

  const std::size_t place = name.find("%d");
  return place == std::string::npos ? name : name.replace(place, 2, filling);
}

}  // namespace

void initLogLevMap(Status& status) {
  initStatus_s(&status);
  for (int level = 0; level < log_level_count; ++level) {
    const char* variable = map_variables[level];
    int priority = not_logged;
    if (!findOSloglev(valueOf(variable), priority)) {
      refuse(valueOf(variable), status);
      findOSloglev(defaultOf(variable), priority);
    }
    setOSloglev(static_cast<LogLevel>(level), priority);
  }
  setSyslogIdent(valueOf("syslog_ident"));
  readFacility(status);
}

void LogMsg::newConfig() {
  // First: reading the configuration logs, too.
  if (state_ == nullptr) state_ = std::make_unique<State>();
  setTimeStamp(VarSet::instance().get("historytime")->number(), valueOf("timeformat"));

  // First without any destination: a file is opened anew, also when its name stays.
  setAll(nullptr);
  const auto system_log_only = std::make_shared<LogMethod>(LogMethod::SYSTEM_LOG_ONLY);
  const auto fileOr = [this](const std::string& name, const std::shared_ptr<LogMethod>& otherwise) {
    return name.empty() ? otherwise : fileMethod(name);
  };
  setAll(
      fileOr(withNode(valueOf("logfile"), ""), std::make_shared<LogMethod>(LogMethod::TO_STDERR)));
  destination(LEVEL_DIA)->method =
      fileOr(withNode(valueOf("diagnosticfile"), "."), system_log_only);
  for (const LogLevel level : {LEVEL_DBG, LEVEL_TST}) destination(level)->method = system_log_only;

  Status status;
  initLogLevMap(status);
}

bool LogMsg::tryHistoryfile(int shm_key) {
  configureOnce();
  return LogMethod(LogMethod::TO_FILE, historyFileName(shm_key)).open();
}

bool LogMsg::redirectHistoryFile(int shm_key) {
  configureOnce();
  const auto file = fileMethod(historyFileName(shm_key));
  if (!file->open()) return false;
  for (Destination& target : destinations_) {
    if (target.method == nullptr) continue;
    const LogMethod::Kind kind = target.method->kind();
    if (kind == LogMethod::TO_STDOUT || kind == LogMethod::TO_STDERR) target.method = file;
  }
  return true;
}
