// Runs a program with a fault put into one of its system calls, by strace's injection.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/process.h"

struct Fault {
  std::string calls;           // names of system calls, separated by commas
  std::string what;            // "error=ENOSPC", "signal=SIGTERM"
  bool from_there_on = false;  // this call and every later one
};

// Empty, or why faults cannot be injected here.
std::string why_no_faults();

// The system calls of a run in turn, from the first one of the program's own on (what the loader
// does before is not the program's to mend): the name, and how many of that name there were so far.
std::vector<std::pair<std::string, int>> calls_of(const std::vector<std::string>& argv);

// The fault strikes at the n-th call of each name, from 1 on, if there are so many: then `struck`.
RunResult run_with_fault(const std::vector<std::string>& argv, const Fault& fault, int n,
                         bool& struck);
