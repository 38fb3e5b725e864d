#include "tests/support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

[[noreturn]] void become(const std::vector<std::string>& argv,
                         const std::vector<std::string>& extra_environment, int out, int err) {
  dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  for (const std::string& entry : extra_environment) {
    const std::size_t equal = entry.find('=');
    setenv(entry.substr(0, equal).c_str(), entry.substr(equal + 1).c_str(), 1);
  }
  std::vector<char*> words;
  for (const std::string& word : argv) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  execv(words[0], words.data());
  std::perror(words[0]);
  _exit(127);
}

// Reads both streams until both are closed; false after a minute of silence.
bool collect(std::array<int, 2> from, std::array<std::string*, 2> to) {
  std::array<pollfd, 2> streams{{{from[0], POLLIN, 0}, {from[1], POLLIN, 0}}};
  for (int open_streams = 2; open_streams > 0;) {
    if (poll(streams.data(), streams.size(), 60000) <= 0) return false;
    for (std::size_t i = 0; i < streams.size(); ++i) {
      if (streams[i].fd < 0 || streams[i].revents == 0) continue;
      std::array<char, 65536> buffer;
      const ssize_t count = read(streams[i].fd, buffer.data(), buffer.size());
      if (count > 0) {
        to[i]->append(buffer.data(), static_cast<std::size_t>(count));
      } else {
        streams[i].fd = -1;
        --open_streams;
      }
    }
  }
  return true;
}

}  // namespace

RunResult run_program(const std::vector<std::string>& argv,
                      const std::vector<std::string>& extra_environment) {
  std::array<int, 2> out;
  std::array<int, 2> err;
  if (pipe2(out.data(), O_CLOEXEC) != 0 || pipe2(err.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe2");
  }
  const pid_t child = fork();
  if (child == 0) become(argv, extra_environment, out[1], err[1]);
  close(out[1]);
  close(err[1]);

  RunResult result;
  if (!collect({out[0], err[0]}, {&result.out, &result.err})) kill(child, SIGKILL);
  close(out[0]);
  close(err[0]);
  int wait_status = 0;
  if (waitpid(child, &wait_status, 0) != child) throw std::runtime_error("waitpid");
  if (WIFEXITED(wait_status)) result.status = WEXITSTATUS(wait_status);
  if (WIFSIGNALED(wait_status)) result.signal = WTERMSIG(wait_status);
  return result;
}
