// Runs a program with a fault put into one of its system calls, by strace's injection, or with one
// of its allocations refused; or with every one of them in turn:
//   Trial{command, prepare, verify, clean_up}.strike_everywhere({"error=EIO", "signal=SIGTERM"});
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/support/process.h"

struct Fault {
  std::string calls;           // names of system calls, separated by commas
  std::string what;            // "error=ENOSPC", "signal=SIGTERM"
  bool from_there_on = false;  // this call and every later one
};

// Empty, or why faults cannot be injected here.
std::string why_no_faults();

// The fault strikes at the n-th call of each name, from 1 on, if there are so many: then `struck`.
RunResult run_with_fault(const std::vector<std::string>& argv, const Fault& fault, int n,
                         bool& struck);

struct Strike {
  std::string fault;     // what struck
  bool lasting = false;  // from there on
};

// What a command is put through: prepared, run, verified and cleaned up for each fault anew, up to
// the first expectation that fails.
struct Trial {
  std::vector<std::string> command;
  std::function<void()> prepare;
  std::function<void(const RunResult&, const Strike&)> verify;
  std::function<void()> clean_up;

  // The faults strike each of the system calls that the command makes when it is left alone.
  void strike_everywhere(const std::vector<std::string>& faults) const;
  void refuse_every_allocation() const;

 private:
  void judge(const RunResult& result, const Strike& strike, const std::string& place) const;
};
