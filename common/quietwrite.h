// Lets a write fail where it would end the process: while a QuietWrite lives, a reader that has
// gone (SIGPIPE) or a limit on the size of files (SIGXFSZ) is an errno of this thread's writes
// alone.
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
