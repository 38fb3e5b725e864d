#include "kern/device/transfer.h"

#include <unistd.h>

#include <cerrno>

namespace {

constexpr int max_interruptions = 100;

// `step(done)` moves what is left behind the first `done` bytes.
template <class Step>
ssize_t move_whole(unsigned n, Step step) {
  unsigned done = 0;
  int interruptions = 0;
  errno = 0;
  while (done < n) {
    const ssize_t moved = step(done);
    if (moved > 0) {
      done += static_cast<unsigned>(moved);
    } else if (moved == 0) {
      errno = 0;
      break;
    } else if (errno != EINTR || ++interruptions == max_interruptions) {
      return done > 0 ? static_cast<ssize_t>(done) : -1;
    }
  }
  return done;
}

}  // namespace

ssize_t mox_pwrite(int fd, const void* buf, unsigned n, long long offset) {
  return move_whole(n, [=](unsigned done) {
    return pwrite(fd, static_cast<const char*>(buf) + done, n - done, offset + done);
  });
}

ssize_t mox_pread(int fd, void* buf, unsigned n, long long offset) {
  return move_whole(n, [=](unsigned done) {
    return pread(fd, static_cast<char*>(buf) + done, n - done, offset + done);
  });
}
