// The status record: one failure as every layer of the system hands it upwards. An operation that
// can fail takes a Status and sets it at the failure site with `set`; callers test failed(), add
// their own position with pushTraceStatus and return.
// The record itself knows neither texts nor logger: getText is defined in src/utl/fmtstatus.cc, the
// reports are defined in common/errhandler.cc.
#pragma once

#include <charconv>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <string>

#include "common/base/sourceposition.h"
#include "errutils/moxstatus.h"

// A text parameter of a status, for the call of `set` alone: a text is not copied.
class StatusParam {
 public:
  StatusParam(const char* text) : text_(text) {}
  StatusParam(const std::string& text) : text_(text.c_str()) {}
  template <std::integral Number>
  StatusParam(Number number) {
    *std::to_chars(digits_, digits_ + sizeof digits_ - 1, number).ptr = '\0';
  }

  const char* text() const { return text_ != nullptr ? text_ : digits_; }

 private:
  const char* text_ = nullptr;
  char digits_[24] = "";
};

struct Status {
  static constexpr int max_params = 9;         // %1 to %9 of a text
  static constexpr int max_param_bytes = 256;  // all parameters, each with its terminator
  static constexpr int max_trace = 20;
  static constexpr int max_text = 512;

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

  // Forgets texts, parameters and trace of the failure before. The position is that of the caller;
  // a function that only sets a status for others passes theirs on.
  void set(Severity_e new_severity, Moxstatus_e new_number, int new_os_error = 0,
           std::initializer_list<StatusParam> parameters = {},
           SourcePosition at = SourcePosition::here());

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

// Appends one parameter and returns how many characters were stored: a text that does not fit any
// more is cut, and not added at all when nothing of it would remain.
int addStatusParam(Status* status, const char* text);

// Record one more source position; the 21st and later ones are ignored.
void pushTraceStatus(Status* status, const char* file, int line);
void pushTraceStatus(Status* status, SourcePosition at = SourcePosition::here());
