#include "kern/mox_res_mgr/interrupt.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>

namespace resmgr {

namespace {

constexpr int interrupts[] = {SIGINT, SIGTERM, SIGHUP};
volatile std::sig_atomic_t pending = 0;

void note(int signal) {
  pending = signal;
}

}  // namespace

void hold_interrupts() {
  for (const int signal : interrupts) {
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) != 0 || present.sa_handler == SIG_IGN) continue;
    // Without SA_RESTART: a call that waits for a device must not outlast the interrupt.
    struct sigaction held {};
    held.sa_handler = note;
    sigaction(signal, &held, nullptr);
  }
}

int pending_interrupt() {
  return pending;
}

void die_of(int signal) {
  std::fflush(stdout);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
  // Reached only while the signal is blocked: the status that a shell would give it.
  _exit(128 + signal);
}

}  // namespace resmgr
