// Signals that are held: noted when others send them, deadly when the program itself is at fault.
#include "common/interrupt.h"

#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/process.h"

namespace {

// The code in a process of its own that holds its signals.
RunResult held(const std::function<int()>& code) {
  return run_function([&code] { return holdInterrupts() == 0 ? code() : 255; });
}

TEST(Interrupts, FaultsOfTheProgramEndItAndThoseThatAnotherProcessSendsAreHeld) {
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
    EXPECT_EQ(held([signal] { return std::raise(signal); }).signal, signal);
    const RunResult sent = held([signal] {
      run_program({"/bin/sh", "-c", "kill -" + std::to_string(signal) + " $PPID"});
      return pendingInterrupt();
    });
    EXPECT_EQ(sent.status, signal);
  }
  const RunResult crash = held([] {
    volatile std::intptr_t nowhere = 0;
    return *reinterpret_cast<volatile int*>(nowhere);
  });
  // A sanitizer ends the process in its own way.
  EXPECT_NE(std::pair(crash.signal, crash.status), std::pair(0, 0));
}

TEST(Interrupts, EndAWaitThatBeginsAfterThem) {
  const RunResult result = held([]() -> int {
    std::raise(SIGTERM);
    pause();
    dieOfSignal(pendingInterrupt());
  });
  EXPECT_EQ(result.signal, SIGTERM);
}

TEST(Interrupts, DyingOfABlockedSignalGivesItsShellStatus) {
  const RunResult result = run_function([]() -> int {
    sigset_t blocked;
    sigfillset(&blocked);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    dieOfSignal(SIGUSR1);
  });
  EXPECT_EQ(result.status, 128 + SIGUSR1);
}

}  // namespace
