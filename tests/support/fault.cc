#include "tests/support/fault.h"

#include <gtest/gtest.h>
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

// The system calls of a run in turn, from the program's own first one on (what the loader does is
// not its to mend): the name, and how many of that name there were so far.
std::vector<std::pair<std::string, int>> calls_of(const std::vector<std::string>& argv) {
  RunResult result;
  std::istringstream lines(trace({}, argv, result));
  std::map<std::string, int> counts;
  int signal_calls = 0;
  std::vector<std::pair<std::string, int>> calls;
  bool started = false;
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(0, line.find('('));
    started = started || line.starts_with("fcntl(0, F_GETFD)");
    const int count = ++counts[name];
    if (!started || name.size() == line.size() || others.contains(name)) continue;
    // All signals are held one by one, and released: the first of these calls stand for the rest.
    if (name != "rt_sigaction" || ++signal_calls <= 4) calls.emplace_back(name, count);
  }
  return calls;
}

}  // namespace

std::string why_no_faults() {
  if (access("/usr/bin/strace", X_OK) != 0) return "skipped: strace is not installed";
  const RunResult trial = run_program({"/usr/bin/strace", "-qq", "-o", "/dev/null", "/bin/true"});
  return trial.status == 0 ? "" : "skipped: strace cannot trace here: " + trial.err;
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

void Trial::judge(const RunResult& result, const Strike& strike, const std::string& place) const {
  SCOPED_TRACE(place + (strike.lasting ? "+\n" : "\n") + result.out + result.err);
  EXPECT_TRUE(result.signal == 0 || strike.fault.starts_with("signal"));
  verify(result, strike);
  clean_up();
}

void Trial::strike_everywhere(const std::vector<std::string>& faults) const {
  prepare();
  const auto calls = calls_of(command);
  clean_up();
  EXPECT_GT(calls.size(), 15U);
  for (const std::string& fault : faults) {
    for (const auto& [call, n] : calls) {
      for (const bool lasting : {false, true}) {
        bool struck = false;
        prepare();
        const RunResult result = run_with_fault(command, {call, fault, lasting}, n, struck);
        const std::string place = call + ":" + fault + ":when=" + std::to_string(n);
        EXPECT_TRUE(struck) << place;
        judge(result, {fault, lasting}, place);
        if (testing::Test::HasFailure()) return;
      }
    }
  }
}

void Trial::refuse_every_allocation() const {
#ifdef FAILING_MALLOC
  const std::string mark = "/tmp/mark." + std::to_string(getpid());
  for (const char* mode : {"FAILING_MALLOC_AT_ONLY=1", "FAILING_MALLOC_ON=1"}) {
    // The first allocation is the C++ library's reserve, without which it cannot throw bad_alloc.
    int strikes = 1;
    do {
      prepare();
      const std::string at = "FAILING_MALLOC_AT=" + std::to_string(++strikes);
      const RunResult result = run_program(
          command, {"LD_PRELOAD=" FAILING_MALLOC, at, "FAILING_MALLOC_MARK=" + mark, mode});
      judge(result, {mode}, at);
    } while (std::filesystem::remove(mark) && !testing::Test::HasFailure());
    EXPECT_GT(strikes, 5);
  }
#else
  GTEST_SKIP() << "skipped: the sanitizers have an allocator of their own";
#endif
}
