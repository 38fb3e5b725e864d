#include "kern/devinit/interrupt.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "kern/initstate.h"

namespace {

volatile std::sig_atomic_t caught_signal = 0;

// A signal that comes just before a wait for the reader of the report would be forgotten there:
// alarms interrupt that wait. Until then SIGALRM keeps the meaning it had.
extern "C" void note_signal(int signal) {
  if (signal != SIGALRM) caught_signal = signal;
  struct sigaction again {};
  again.sa_handler = note_signal;
  sigaction(SIGALRM, &again, nullptr);
  alarm(1);
}

// Without SA_RESTART, so that a signal also ends a wait for the reader of the report.
void set_action(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  if (sigaction(signal, &action, nullptr) != 0) devinit_fail("sigaction", errno);
}

}  // namespace

void catch_interrupts() {
  for (const int signal : {SIGPIPE, SIGXFSZ}) set_action(signal, SIG_IGN);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) continue;
    set_action(signal, note_signal);
  }
}

void checkpoint() {
  const int signal = caught_signal;
  if (signal == 0) return;
  cleanup();
  set_action(signal, SIG_DFL);
  (void)std::raise(signal);
}
