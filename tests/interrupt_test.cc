// Signals that are held: noted when they come from others, and as deadly as ever when the program
// itself is at fault.
#include "common/interrupt.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/process.h"

namespace {

TEST(Interrupts, FaultsOfTheProgramEndItAndThoseThatAnotherProcessSendsAreHeld) {
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
    SCOPED_TRACE(signal);
    const RunResult own = run_function([signal] {
      holdInterrupts();
      return std::raise(signal);
    });
    EXPECT_EQ(own.signal, signal);
    const RunResult sent = run_function([signal] {
      holdInterrupts();
      run_program({"/bin/sh", "-c", "kill -" + std::to_string(signal) + " $PPID"});
      return pendingInterrupt();
    });
    EXPECT_EQ(sent.status, signal);
  }
  const RunResult crash = run_function([] {
    holdInterrupts();
    volatile std::intptr_t nowhere = 0;
    return *reinterpret_cast<volatile int*>(nowhere);
  });
  // A sanitizer ends the process in its own way.
  EXPECT_NE(std::pair(crash.signal, crash.status), std::pair(0, 0));
}

TEST(Interrupts, EndAWaitThatBeginsAfterThem) {
  const RunResult result = run_function([]() -> int {
    holdInterrupts();
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
