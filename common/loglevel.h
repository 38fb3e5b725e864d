// The levels of log messages. Included by everything that logs, through common/logger.h.
#pragma once

enum LogLevel : int {
  LEVEL_DBG = 0,
  LEVEL_INF,
  LEVEL_WRN,
  LEVEL_ERR,
  LEVEL_VSE,
  LEVEL_DIA,  // the diagnostic level: for the maintainers of the system
  LEVEL_TST,
};

inline constexpr int log_level_count = 7;
