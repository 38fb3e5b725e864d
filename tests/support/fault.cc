#include "tests/support/fault.h"

#include <unistd.h>

#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "tests/support/sandbox.h"

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
  const std::string text = read_file(log);
  std::filesystem::remove(log);
  return text;
}

// An exit cannot fail. When a futex does, the C library aborts by itself, and so does the runtime
// of the sanitizers with its own calls. mkstemp calls getrandom in some 4 % of all runs only.
#ifdef __SANITIZE_ADDRESS__
const std::set<std::string> others = {"exit_group", "futex",  "getrandom", "madvise",
                                      "mmap",       "munmap", "pipe2",     "write"};
#else
const std::set<std::string> others = {"exit_group", "futex", "getrandom"};
#endif

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
  std::map<std::string, int> own_counts;
  std::vector<std::pair<std::string, int>> calls;
  bool started = false;
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(0, line.find('('));
    started = started || line.starts_with("fcntl(0, F_GETFD)");
    const int count = ++counts[name];
    if (!started || name.size() == line.size() || others.contains(name)) continue;
    // All signals are held one by one, and released: the first of these calls stand for the rest.
    if (++own_counts[name] <= 4 || name != "rt_sigaction") calls.emplace_back(name, count);
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
