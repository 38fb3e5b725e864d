#include "tests/support/fault.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace {

// What strace writes about a run, with the options that it is given.
std::string trace(const std::vector<std::string>& options, const std::vector<std::string>& argv,
                  RunResult& result) {
  const std::string log = "/tmp/fault." + std::to_string(getpid());
  std::vector<std::string> traced = {"/usr/bin/strace", "-qq", "-o", log};
  traced.insert(traced.end(), options.begin(), options.end());
  traced.insert(traced.end(), argv.begin(), argv.end());
  // LeakSanitizer cannot work in a traced process.
  result = run_program(traced, {"ASAN_OPTIONS=detect_leaks=0"});
  std::ifstream file(log);
  std::string text(std::istreambuf_iterator<char>(file), {});
  std::filesystem::remove(log);
  return text;
}

}  // namespace

std::string why_no_faults() {
  if (access("/usr/bin/strace", X_OK) != 0) return "skipped: strace is not installed";
  const RunResult trial = run_program({"/usr/bin/strace", "-qq", "-o", "/dev/null", "/bin/true"});
  return trial.status == 0 ? "" : "skipped: strace cannot trace here: " + trial.err;
}

std::vector<std::pair<std::string, int>> calls_of(const std::vector<std::string>& argv) {
  RunResult result;
  std::istringstream lines(trace({}, argv, result));
  std::map<std::string, int> counts;
  std::vector<std::pair<std::string, int>> calls;
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(0, line.find('('));
    // The program is traced from its execve on; its exit is no call that could fail.
    if (name == "execve" || name == "exit_group" || name.size() == line.size()) continue;
    calls.emplace_back(name, ++counts[name]);
  }
  return calls;
}

RunResult run_with_fault(const std::vector<std::string>& argv, const Fault& fault, int n,
                         bool& struck) {
  RunResult result;
  const std::string text =
      trace({"-e", "trace=" + fault.calls, "-e",
             "inject=" + fault.calls + ":" + fault.what + ":when=" + std::to_string(n) +
                 (fault.from_there_on ? "+" : "")},
            argv, result);
  struck = text.find("INJECTED") != std::string::npos ||
           text.find("--- SIG") != std::string::npos || result.signal != 0;
  return result;
}
