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

// Every system call of a run in turn: its name, and how many of that name there were so far.
std::vector<std::pair<std::string, int>> calls_of(const std::vector<std::string>& argv);

// The fault strikes at the n-th call of each name (1, 2, ...); `struck` is false when there were
// fewer.
RunResult run_with_fault(const std::vector<std::string>& argv, const Fault& fault, int n,
                         bool& struck);
