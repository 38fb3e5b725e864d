#include "common/interrupt.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <iterator>

namespace {

volatile std::sig_atomic_t pending = 0;

// SIGPIPE and SIGXFSZ become failures of the write: see openStandardStreams.
constexpr int not_held[] = {SIGKILL, SIGSTOP, SIGTSTP,  SIGTTIN, SIGTTOU, SIGCONT,
                            SIGCHLD, SIGURG,  SIGWINCH, SIGPIPE, SIGXFSZ};
constexpr int faults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT};

template <std::size_t N>
bool contains(const int (&signals)[N], int signal) {
  return std::find(signals, std::end(signals), signal) != std::end(signals);
}

extern "C" void noteSignal(int signal, siginfo_t* info, void* /*context*/) {
  // Returning to a faulting instruction would run into the same fault for ever.
  const bool own_fault =
      contains(faults, signal) && (info->si_code > 0 || info->si_pid == getpid());
  if (own_fault) {
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    return;
  }
  // A wait that begins only after the signal would not notice it: from then on an alarm a second
  // ends every wait. An alarm that comes first is the caller's, and an interrupt like the others.
  if (signal != SIGALRM || pending == 0) pending = signal;
  alarm(1);
}

bool libraryKeeps(int signal) {
  // Between the standard signals and SIGRTMIN lie those that the C library uses itself.
  return signal >= __SIGRTMIN && signal < SIGRTMIN;
}

}  // namespace

int holdInterrupts() {
  // Without SA_RESTART: a call that waits for a device or a reader must not outlast the interrupt.
  struct sigaction held {};
  held.sa_sigaction = noteSignal;
  held.sa_flags = SA_SIGINFO;
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    if (contains(not_held, signal) || libraryKeeps(signal)) continue;
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) != 0) return errno;
    const bool ignored = present.sa_handler == SIG_IGN;
    if (!ignored && sigaction(signal, &held, nullptr) != 0) return errno;
  }
  return 0;
}

int pendingInterrupt() {
  return pending;
}

void dieOfSignal(int signal) {
  std::fflush(stdout);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
  // Reached only while the signal is blocked: the status that a shell would give it.
  _exit(128 + signal);
}
