#include "common/interrupt.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <bitset>
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

std::array<struct sigaction, _NSIG> before;  // of the signals in `held`
std::bitset<_NSIG> held;

bool libraryKeeps(int signal) {
  // Between the standard signals and SIGRTMIN lie those that the C library uses itself.
  return signal >= __SIGRTMIN && signal < SIGRTMIN;
}

}  // namespace

int holdInterrupts() {
  // Without SA_RESTART: a call that waits for a device or a reader must not outlast the interrupt.
  struct sigaction note {};
  note.sa_sigaction = noteSignal;
  note.sa_flags = SA_SIGINFO;
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    const auto i = static_cast<std::size_t>(signal);
    if (held[i] || contains(not_held, signal) || libraryKeeps(signal)) continue;
    if (sigaction(signal, nullptr, &before[i]) != 0) return errno;
    if (before[i].sa_handler == SIG_IGN) continue;
    if (sigaction(signal, &note, nullptr) != 0) return errno;
    held.set(i);
  }
  return 0;
}

void releaseInterrupts() {
  for (std::size_t i = 1; i < held.size(); ++i) {
    if (held[i]) sigaction(static_cast<int>(i), &before[i], nullptr);
  }
  held.reset();
  const int signal = pending;
  if (signal == 0) return;
  alarm(0);
  pending = 0;
  std::raise(signal);
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
