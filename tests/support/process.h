// Runs a program to its end and hands back all that it said, for the end-to-end tests.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct RunResult {
  std::string out;
  std::string err;
  int status = -1;  // exit status; -1 when a signal ended the program
  int signal = 0;   // the signal that ended it, or 0
  bool operator==(const RunResult& other) const = default;
};

// argv[0] is the path of the program. The environment is this process's own, with the given
// "NAME=value" entries put over it. Standard input is empty.
RunResult run_program(const std::vector<std::string>& argv,
                      const std::vector<std::string>& extra_environment = {});

// Runs the code in a process of its own, which ends with the status that it returns.
RunResult run_function(const std::function<int()>& code);
