#include "common/interrupt.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <initializer_list>

namespace {

volatile std::sig_atomic_t pending = 0;

// A wait that begins only after the signal would not notice it: from then on an alarm a second ends
// every wait.
extern "C" void noteSignal(int signal) {
  if (signal != SIGALRM) pending = signal;
  alarm(1);
}

}  // namespace

int holdInterrupts() {
  // Without SA_RESTART: a call that waits for a device or a reader must not outlast the interrupt.
  struct sigaction held {};
  held.sa_handler = noteSignal;
  for (const int signal : {SIGALRM, SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) != 0) return errno;
    const bool ignored = present.sa_handler == SIG_IGN && signal != SIGALRM;
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
