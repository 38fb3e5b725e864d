// What the logger says about its own troubles, which must not go through the logger: lines on
// standard output, or to the destination that was slow. Also holds the two values that shape every
// line, because these lines carry the prefix too.
#pragma once

#include <chrono>
#include <string>

extern const char* logmsgPrefix;  // tag of the program, constant text; null: none
extern int logmsgNodeno;          // negative: none

// Prints the text on standard output, in order with what the program itself prints there. A reader
// that has gone does not end the process.
void printLogTrouble(const std::string& text);

// "<prefix> WRN p:<pid> t:<seconds> could not <what>:<text of os_error>" on standard output.
void warnLogTrouble(const std::string& what, int os_error);

// Measures one step of the logger, from its construction on.
class SlowWatch {
 public:
  // Above 100 milliseconds "<prefix> BEWARE <time> <what> took too long (<n> msecs)" and a line
  // end, otherwise nothing.
  std::string complaint(const char* what) const;

 private:
  std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
};
