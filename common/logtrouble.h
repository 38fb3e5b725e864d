// What the logger says about its own troubles, which must not go through the logger: lines on
// standard output, or on the stream that was slow. Also holds the two values that shape every line,
// because these lines carry the prefix too.
#pragma once

#include <chrono>
#include <cstdio>

extern const char* logmsgPrefix;  // tag of the program, constant text; null: none
extern int logmsgNodeno;          // negative: none

// "<prefix> WRN p:<pid> t:<seconds> could not <what>:<text of os_error>" on standard output.
void warnLogTrouble(const char* what, int os_error);

// Measures one write of the logger, from its construction on.
class SlowWatch {
 public:
  // Above 100 milliseconds writes "<prefix> BEWARE <time> <what> took too long (<n> msecs)".
  void report(std::FILE* stream, const char* what) const;

 private:
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};
