#include "common/quietwrite.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>

namespace {

constexpr int raised_by_writes[] = {SIGPIPE, SIGXFSZ};

}  // namespace

QuietWrite::QuietWrite() {
  sigset_t quiet;
  sigemptyset(&quiet);
  for (const int signal : raised_by_writes) sigaddset(&quiet, signal);
  pthread_sigmask(SIG_BLOCK, &quiet, &before_);
}

// A signal that the caller had blocked himself stays pending for him.
QuietWrite::~QuietWrite() {
  const int kept = errno;
  sigset_t ours;
  sigemptyset(&ours);
  for (const int signal : raised_by_writes) {
    if (sigismember(&before_, signal) == 0) sigaddset(&ours, signal);
  }
  const timespec at_once{};
  while (sigtimedwait(&ours, nullptr, &at_once) > 0) {
  }
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  errno = kept;
}
