#include "common/stdstreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

void openStandardStreams() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) != -1 || errno != EBADF) continue;
    // The wrong way round for input and reports, which must not seem to succeed; log lines may go.
    if (open("/dev/null", fd == STDOUT_FILENO ? O_RDONLY : O_WRONLY) != fd) {
      std::perror("/dev/null");
      std::exit(EXIT_FAILURE);
    }
  }
}
