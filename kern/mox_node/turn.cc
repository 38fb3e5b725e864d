#include "kern/mox_node/turn.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <chrono>

#include "common/interrupt.h"
#include "kern/mox_node/failure.h"

namespace moxnode {

namespace {

constexpr const char* lock_path = "/run/lock/mox_node.lock";
constexpr std::chrono::seconds patience{10};
constexpr int between_tries = 20;  // milliseconds

// Every user may create files in the folder: nothing is followed, emptied or waited for there.
constexpr int reading = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

// Readable by everyone from its first moment on, whatever the caller's mask.
int create_lock_file() {
  const mode_t mask = umask(0);
  const int fd = open(lock_path, reading | O_CREAT | O_EXCL, 0444);
  const int error = errno;
  umask(mask);
  errno = error;
  return fd;
}

Descriptor open_lock_file() {
  for (int tries = 0; tries < 10; ++tries) {
    Descriptor file(open(lock_path, reading));
    if (!file && errno == ENOENT) file = Descriptor(create_lock_file());
    if (file) return file;
    // Created or removed by another user of the lock between the two calls.
    if (errno != EEXIST && errno != ENOENT) break;
  }
  throw Failure(std::string("opening ") + lock_path, errno);
}

// Whether the lock was taken. A lock on a file that was removed meanwhile would bind nobody else.
bool take(Descriptor& file) {
  if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK || errno == EINTR) return false;
    throw Failure(std::string("locking ") + lock_path, errno);
  }
  struct stat status {};
  if (fstat(file.get(), &status) != 0) throw Failure(std::string("looking at ") + lock_path, errno);
  if (!S_ISREG(status.st_mode)) {
    throw Failure(std::string(lock_path) + " is no regular file");
  }
  if (status.st_nlink > 0) return true;
  file = open_lock_file();
  return false;
}

}  // namespace

Turn::Turn() : file_(open_lock_file()) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (!take(file_)) {
    if (std::chrono::steady_clock::now() >= end) {
      throw Failure(std::string("another up or down is at work: ") + lock_path +
                    " is still locked after " + std::to_string(patience.count()) + " seconds");
    }
    pause_milliseconds(between_tries);
  }
}

void pause_milliseconds(int milliseconds) {
  const timespec time{milliseconds / 1000, milliseconds % 1000 * 1000000L};
  // A signal ends the wait; one that came before it is seen behind it.
  nanosleep(&time, nullptr);
  if (const int signal = pendingInterrupt(); signal != 0) dieOfSignal(signal);
}

}  // namespace moxnode
