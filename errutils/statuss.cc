#include "errutils/statuss.h"

#include <cstring>

namespace {

int bytesUsed(const Status& status) {
  const char* end = status.params;
  for (int i = 0; i < status.param_count; ++i) end += std::strlen(end) + 1;
  return static_cast<int>(end - status.params);
}

}  // namespace

const char* getNameSeverity_e(Severity_e severity) {
  switch (severity) {
    case SEV_SUCCESS:
      return "success";
    case SEV_WARNING:
      return "warning";
    case SEV_ERROR:
      return "error";
    case SEV_SYSTEMERR:
      return "systemerr";
    case SEV_INTERNERR:
      return "internerr";
  }
  return "(Illegal)";
}

Status::Status() {
  initStatus_s(this);
}

void Status::setstatus(Severity_e new_severity, Moxstatus_e new_number) {
  severity = new_severity;
  number = new_number;
}

void Status::set(Severity_e new_severity, Moxstatus_e new_number, int new_os_error,
                 std::initializer_list<StatusParam> parameters, SourcePosition at) {
  setstatus(new_severity, new_number);
  os_error = new_os_error;
  file = at.file;
  line = at.line;
  sqlstate[0] = '\0';
  text[0] = '\0';
  os_text[0] = '\0';
  param_count = 0;
  trace_count = 0;
  for (const StatusParam& parameter : parameters) addStatusParam(this, parameter.text());
}

void initStatus_s(Status* status) {
  status->set(SEV_SUCCESS, MOX_NORMAL, 0, {}, {"none", 0});
}

int addStatusParam(Status* status, const char* text) {
  const int used = bytesUsed(*status);
  auto stored = static_cast<int>(strnlen(text, Status::max_param_bytes));
  if (used + stored + 1 > Status::max_param_bytes) {
    stored = Status::max_param_bytes - 1 - used;
    if (stored < 1) return 0;
  }
  std::memcpy(status->params + used, text, static_cast<std::size_t>(stored));
  status->params[used + stored] = '\0';
  ++status->param_count;
  return stored;
}

void pushTraceStatus(Status* status, const char* file, int line) {
  pushTraceStatus(status, SourcePosition{file, line});
}

void pushTraceStatus(Status* status, SourcePosition at) {
  if (status->trace_count < 0 || status->trace_count >= Status::max_trace) return;
  status->trace[status->trace_count++] = at;
}
