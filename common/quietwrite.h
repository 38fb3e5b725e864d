// Makes a write fail with EPIPE or EFBIG where SIGPIPE or SIGXFSZ would end the process: blocks
// both signals in this thread as long as the object lives, and discards those that its writes
// raised.
#pragma once

#include <csignal>

class QuietWrite {
 public:
  QuietWrite();
  ~QuietWrite();  // keeps errno
  QuietWrite(const QuietWrite&) = delete;
  QuietWrite& operator=(const QuietWrite&) = delete;

 private:
  sigset_t before_;
};
