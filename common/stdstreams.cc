#include "common/stdstreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

void openStandardStreams() {
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    if (fcntl(fd, F_GETFD) != -1) continue;
    // Opened the wrong way round, so that reading and writing still fail.
    const int taken = open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    if (taken != fd) std::_Exit(EXIT_FAILURE);
  }
}
