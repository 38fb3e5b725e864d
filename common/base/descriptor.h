// A file descriptor that closes itself. Closing in the destructor keeps errno, so that the failure
// which led there can still be reported; where the result of close counts, call close().
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~Descriptor() { reset(); }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }

  // Keeps errno.
  void reset(int fd = -1) {
    const int kept = errno;
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
    errno = kept;
  }

  // 0 or the errno.
  int close() { return ::close(release()) == 0 ? 0 : errno; }

 private:
  int fd_;
};
