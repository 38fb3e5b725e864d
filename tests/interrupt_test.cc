// Signals that are held: noted when they come from others, and as deadly as ever when the program
// itself is at fault.
#include "common/interrupt.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

namespace {

const int faults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT};

// The wait status of a child process that runs the code and would end with 0.
template <class Code>
int ending(Code code) {
  const pid_t child = fork();
  if (child == 0) {
    const rlimit no_core{};
    setrlimit(RLIMIT_CORE, &no_core);
    code();
    _exit(0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

// Sends the signal from another process, and waits for it.
void be_signalled(int signal) {
  const pid_t self = getpid();
  const pid_t sender = fork();
  if (sender == 0) _exit(kill(self, signal));
  while (waitpid(sender, nullptr, 0) != sender && errno == EINTR) continue;
}

TEST(Interrupts, FaultsThatAnotherProcessSendsAreHeld) {
  for (const int signal : faults) {
    const int status = ending([signal] {
      holdInterrupts();
      be_signalled(signal);
      if (pendingInterrupt() != signal) _exit(1);
    });
    EXPECT_EQ(status, 0) << signal;
  }
}

TEST(Interrupts, FaultsOfTheProgramEndIt) {
  for (const int signal : faults) {
    const int status = ending([signal] {
      holdInterrupts();
      std::raise(signal);
    });
    EXPECT_EQ(WTERMSIG(status), signal);
  }
  const int status = ending([] {
    holdInterrupts();
    volatile std::intptr_t nowhere = 0;
    *reinterpret_cast<volatile int*>(nowhere) = 1;
  });
  EXPECT_TRUE(WIFSIGNALED(status));
}

TEST(Interrupts, EndAWaitThatBeginsAfterThem) {
  const int status = ending([] {
    holdInterrupts();
    std::raise(SIGTERM);
    pause();
    if (pendingInterrupt() != SIGTERM) _exit(1);
    dieOfSignal(pendingInterrupt());
  });
  EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST(Interrupts, DyingOfABlockedSignalGivesItsShellStatus) {
  const int status = ending([] {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, nullptr);
    dieOfSignal(SIGUSR1);
  });
  EXPECT_EQ(WEXITSTATUS(status), 128 + SIGUSR1);
}

}  // namespace
