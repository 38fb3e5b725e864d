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
    // Opened the wrong way round, so that reading and writing still fail.
    if (open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd) {
      std::perror("/dev/null");
      std::exit(EXIT_FAILURE);
    }
  }
}
