// The error block of the resource manager, as its line on standard output.
#pragma once

#include <cstdio>
#include <cstring>
#include <string>

// `os_error` is the number behind "OS status=", -1 for a text without one.
inline std::string error_block(int number, int severity, const std::string& text,
                               int os_error = -1) {
  char head[100];
  std::snprintf(head, sizeof head,
                "RESMGR ERROR Error number %d severity %d KORV-%c-%05d: ", number, severity,
                severity == 4 ? 'S' : 'E', number);
  std::string line = head + text;
  if (os_error >= 0) line += ", OS status=" + std::to_string(os_error);
  if (os_error > 0) line += std::string(" OS error message: ") + std::strerror(os_error);
  return line + "\n";
}
