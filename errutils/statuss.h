// The status record: one failure as every layer of the system hands it upwards. An operation that
// can fail takes a Status, sets it at the failure site with STATUS_SET and may add text parameters;
// callers test failed(), add their own position with STATUS_TRACE and return.
// The record itself knows neither texts nor logger: getText is defined in src/utl/fmtstatus.cc, the
// reports are defined in common/errhandler.cc.
#pragma once

#include <cstdint>

#include "errutils/moxstatus.h"

struct Status {
  static constexpr int max_params = 9;         // %1 to %9 of a text
  static constexpr int max_param_bytes = 256;  // all parameters, each with its terminator
  static constexpr int max_trace = 20;
  static constexpr int max_text = 512;

  struct SourcePosition {
    const char* file;  // constant text, not owned
    std::int32_t line;
  };

  Moxstatus_e number;
  Severity_e severity;
  std::int32_t os_error;  // the errno that caused the failure; 0 or less: none
  std::int32_t line;      // where the status was set; 0: unknown
  const char* file;       // constant text, not owned
  char sqlstate[6];       // empty until the text is formatted
  std::int32_t param_count;
  char params[max_param_bytes];  // zero-terminated texts, one behind the other
  std::int32_t trace_count;
  SourcePosition trace[max_trace];  // oldest first
  char text[max_text];              // empty until the text is formatted
  char os_text[256];                // text of os_error; empty until the text is formatted

  Status();

  bool failed() const { return severity >= SEV_ERROR; }

  // Writes severity and number alone.
  void setstatus(Severity_e new_severity, Moxstatus_e new_number);

  // What STATUS_SET does: forgets texts, parameters and trace of the failure before.
  void set(Severity_e new_severity, Moxstatus_e new_number, int new_os_error, const char* in_file,
           int at_line);

  // The message, formatted at the first call and kept until the status is set again.
  const char* getText();
  // The bare template of a number.
  static const char* getText(Moxstatus_e number);

  // Append to the logger's current message; the caller starts and writes it.
  void printError();
  void printSysError();
  void printDiagnosticError();
  void debug(const char* label);  // label may be null

  // Writes a log message of its own at level ERR, and one at the diagnostic level from severity 4.
  void report(const char* label);  // label may be null
  // Reports and ends the process with status 1; message may be null.
  [[noreturn]] void abort(const char* message);
};

// The cleared state: number 0, severity 1, file "none".
void initStatus_s(Status* status);

// Appends one parameter and returns how many characters were stored: a text for which there is no
// room left is cut, and not added at all when nothing of it would remain.
int addStatusParam(Status* status, const char* text);

// Records one more source position; the 21st and later ones are ignored.
void pushTraceStatus(Status* status, const char* file, int line);

#define STATUS_SET(status, severity, number, os_error) \
  (status).set((severity), (number), (os_error), __FILE__, __LINE__)
#define STATUS_TRACE(status) pushTraceStatus(&(status), __FILE__, __LINE__)
