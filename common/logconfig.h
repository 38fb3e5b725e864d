// What connects the logger with the configuration variables: the map from levels to priorities of
// the system log, and (declared with the class, defined here) LogMsg::newConfig and the history
// file. Programs normally call logmsg.newConfig alone, which also reads the map.
#pragma once

#include "errutils/statuss.h"

// Reads loglevmap_*, syslog_facility and syslog_ident; the environment's MOX_SYSLOG_FACILITY comes
// before syslog_facility. A value that is no priority or facility is logged, gives 11618 with
// severity 4, and leaves the default.
void initLogLevMap(Status& status);
