// What the resource manager says when something fails: its one status object, the error block in
// the report, and the fatal end of a run.
#pragma once

#include <cstdio>
#include <string>

#include "common/base/sourceposition.h"
#include "errutils/statuss.h"

namespace resmgr {

// The one status object of the tool. Every operation clears it first; failed() afterwards means
// that the operation failed.
extern Status stat;

// Where the reports go: standard output, unless a program needs that for something else.
extern std::FILE* report_stream;

// Prints to report_stream. Whether that succeeded is asked once, at the end: output_written().
[[gnu::format(printf, 1, 2)]] void say(const char* format, ...);

// Prints the error block of `stat` and logs it at level INF, with the caller's position on the
// trace; does nothing while its number is 0.
void emit_korv_error(SourcePosition at = SourcePosition::here());

// Logs a failed call of the system that no status carries: "removing /a/b: Permission denied".
void log_os_error(const std::string& activity, const std::string& object, int os_error,
                  SourcePosition at = SourcePosition::here());

// Prints "abnormal termination, exit(1)" and ends the process with status 1.
[[noreturn]] void crash();

// Flushes standard output. False, with a line in the log, when a part of the reports was lost.
bool output_written();

}  // namespace resmgr
