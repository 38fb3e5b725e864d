// One system call after the other is made to fail, or a signal to arrive at it: whatever happens, a
// CREATE leaves everything and says so, or nothing.
#include <signal.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/fault.h"
#include "tests/support/ipc_namespace.h"

namespace {

const std::vector<std::string> create = {MOX_RES_MGR,  "create",  "node-1:",     "ipcbase=1000,",
                                         "databuf=10", "node-2:", "ipcbase=2000"};
const std::vector<std::string> check = {MOX_RES_MGR,  "check",   "node-1:",     "ipcbase=1000,",
                                        "databuf=10", "node-2:", "ipcbase=2000"};
const std::vector<std::string> del = {
    MOX_RES_MGR, "delete", "node-1:", "ipcbase=1000", "node-2:", "ipcbase=2000"};
const std::vector<int> all_segments = {1001, 1004, 2004};
const std::vector<int> all_sets = {1005, 2005};

class Failures : public IpcTest {
 protected:
  void SetUp() override {
    IpcTest::SetUp();
    const std::string reason = why_no_faults();
    if (!reason.empty()) GTEST_SKIP() << reason;
  }

  static bool nothing_left() { return kernel_segments().empty() && kernel_sets().empty(); }
  static bool everything_there() {
    return segment_keys() == all_segments && set_keys() == all_sets;
  }
  static void clean_up() {
    run_program(del);
    ASSERT_TRUE(nothing_left());
  }

  // Strikes at every system call that the program makes when it is left alone.
  template <class Verify>
  static void strike_at_every_call(const std::vector<std::string>& argv, const std::string& what,
                                   Verify verify) {
    const auto calls = calls_of(argv);
    clean_up();
    EXPECT_GT(calls.size(), 50U);
    for (const auto& [call, n] : calls) {
      bool struck = false;
      const RunResult result = run_with_fault(argv, {call, what}, n, struck);
      SCOPED_TRACE(call + ":" + what + ":when=" + std::to_string(n) + "\n" + result.out +
                   result.err);
      EXPECT_TRUE(struck);
      verify(result);
      clean_up();
    }
  }

  // Strikes at the first of the calls, the second, and so on; returns how often it did.
  template <class Verify>
  static int strike_at_each(const std::vector<std::string>& argv, const Fault& fault,
                            Verify verify) {
    for (int n = 1;; ++n) {
      bool struck = false;
      const RunResult result = run_with_fault(argv, fault, n, struck);
      SCOPED_TRACE(fault.calls + ":" + fault.what + ":when=" + std::to_string(n) +
                   (fault.from_there_on ? "+" : "") + "\n" + result.out + result.err);
      verify(result);
      clean_up();
      if (!struck || HasFailure()) return n - 1;
    }
  }
};

TEST_F(Failures, ACreateIsAllOrNothingWhicheverCallFails) {
  const Fault faults[] = {
      {"shmget", "error=ENOSPC"},         {"shmget", "error=EACCES", true},
      {"shmat", "error=ENOMEM"},          {"shmat", "error=EMFILE", true},
      {"semget", "error=ENOSPC"},         {"semctl", "error=EPERM"},
      {"semget", "error=EACCES", true},   {"shmdt", "error=EINVAL"},
      {"rt_sigaction", "error=EINVAL"},   {"openat", "error=EMFILE"},
      {"openat", "error=EMFILE", true},   {"brk,mmap", "error=ENOMEM"},
      {"brk,mmap", "error=ENOMEM", true}, {"write", "error=EIO"},
      {"write", "error=ENOSPC", true},    {"fcntl", "error=EBADF"},
  };
  for (const Fault& fault : faults) {
    const int strikes = strike_at_each(create, fault, [](const RunResult& result) {
      if (result.status == 0) {
        EXPECT_TRUE(everything_there());
      } else {
        EXPECT_TRUE(nothing_left());
      }
    });
    // Some calls are made on the way back from a failure alone.
    EXPECT_TRUE(strikes > 0 || fault.calls == "shmdt") << fault.calls;
  }
}

// Where even the removals fail, every object that stays is named.
TEST_F(Failures, ACreateNamesWhatItCannotUndo) {
  for (const char* calls : {"shmctl", "semctl", "shmdt"}) {
    const auto verify = [](const RunResult& result) {
      for (const int key : segment_keys()) {
        if (key == 2004) continue;
        const std::string report = "memory segment " + std::to_string(key) + " failed\n";
        EXPECT_NE(result.out.find(report), std::string::npos) << key;
      }
      for (const int key : set_keys()) {
        const std::string report = "semaphores with " + std::to_string(key) + " failed\n";
        EXPECT_NE(result.out.find(report), std::string::npos) << key;
      }
    };
    for (int n = 1; n < 5; ++n) {
      shmget(2004, 10, IPC_CREAT | 0600);
      bool struck = false;
      const RunResult result = run_with_fault(create, {calls, "error=EPERM", true}, n, struck);
      SCOPED_TRACE(result.out);
      EXPECT_EQ(result.status, 1);
      verify(result);
      clean_up();
    }
  }
}

TEST_F(Failures, SignalsAtEveryCallLeaveAllOrNothing) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const std::string what = "signal=" + std::to_string(signal);
    strike_at_every_call(create, what, [&](const RunResult& result) {
      if (result.status == 0) {
        EXPECT_TRUE(everything_there());
      } else {
        EXPECT_TRUE(nothing_left());
        EXPECT_EQ(result.signal, signal);
      }
    });
    strike_at_every_call(check, what, [&](const RunResult& result) {
      EXPECT_TRUE(nothing_left());
      EXPECT_TRUE(result.signal == signal || result.status == 0);
    });
  }
}

TEST_F(Failures, ADeleteCleansUpAfterACreateThatWasKilled) {
  strike_at_every_call(create, "signal=SIGKILL",
                       [](const RunResult& result) { EXPECT_EQ(result.signal, SIGKILL); });
}

#ifdef FAILING_MALLOC
TEST_F(Failures, ACreateIsAllOrNothingWhicheverAllocationFails) {
  const std::string mark = testing::TempDir() + "failing_malloc." + std::to_string(getpid());
  for (const char* mode : {"FAILING_MALLOC_AT_ONLY=1", "FAILING_MALLOC_ON=1"}) {
    // The first allocation is the C++ library's reserve, without which it cannot throw bad_alloc.
    int strikes = 1;
    do {
      unlink(mark.c_str());
      const std::string at = "FAILING_MALLOC_AT=" + std::to_string(++strikes);
      const RunResult result = run_program(
          create, {"LD_PRELOAD=" FAILING_MALLOC, at, "FAILING_MALLOC_MARK=" + mark, mode});
      SCOPED_TRACE(at + " " + mode + "\n" + result.out + result.err);
      EXPECT_EQ(result.signal, 0);
      EXPECT_TRUE(result.status == 0 ? everything_there() : nothing_left());
      clean_up();
    } while (access(mark.c_str(), F_OK) == 0);
    EXPECT_GT(strikes, 20);
  }
}
#endif

}  // namespace
