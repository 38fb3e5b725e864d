// Where in the source something happened. As a default argument, `SourcePosition::here()` is the
// position of the caller, so that a status or a log line names the site that failed and not a
// helper function on the way:
//   void fail(..., SourcePosition at = SourcePosition::here());
#pragma once

#include <cstdint>

struct SourcePosition {
  const char* file;  // constant text, not owned
  std::int32_t line;

  static constexpr SourcePosition here(const char* in_file = __builtin_FILE(),
                                       std::int32_t at_line = __builtin_LINE()) {
    return {in_file, at_line};
  }
};
