// What connects the logger with its configuration: the members of LogMsg that the logger itself
// cannot define.
#include "common/logger.h"

void LogMsg::newConfig() {
  configured_ = true;
  const auto standard_error = std::make_shared<LogMethod>(LogMethod::TO_STDERR);
  const auto no_stream = std::make_shared<LogMethod>(LogMethod::SYSTEM_LOG_ONLY);
  for (const LogLevel level : {LEVEL_DBG, LEVEL_DIA, LEVEL_TST}) {
    destination(level)->method = no_stream;
  }
  for (const LogLevel level : {LEVEL_INF, LEVEL_WRN, LEVEL_ERR, LEVEL_VSE}) {
    destination(level)->method = standard_error;
  }
}
