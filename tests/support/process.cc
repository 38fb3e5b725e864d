#include "tests/support/process.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

// What was written to a file in memory, and the end of that file.
std::string taken(int file) {
  std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
  const ssize_t count = pread(file, text.data(), text.size(), 0);
  close(file);
  return count == static_cast<ssize_t>(text.size()) ? text : "unreadable";
}

}  // namespace

RunResult run_function(const std::function<int()>& code) {
  const int out = memfd_create("stdout", MFD_CLOEXEC);
  const int err = memfd_create("stderr", MFD_CLOEXEC);
  if (out < 0 || err < 0) throw std::runtime_error("memfd_create");
  const pid_t child = fork();
  if (child == 0) {
    const rlimit no_core{};
    setrlimit(RLIMIT_CORE, &no_core);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    // A shell lets the commands that it runs in the background ignore these.
    for (const int signal : {SIGINT, SIGQUIT}) std::signal(signal, SIG_DFL);
    const int status = code();
    std::fflush(stdout);
    _exit(status);
  }
  int wait_status = 0;
  while (waitpid(child, &wait_status, 0) != child) {
    if (errno != EINTR) throw std::runtime_error("waitpid");
  }
  RunResult result{taken(out), taken(err)};
  if (WIFEXITED(wait_status)) result.status = WEXITSTATUS(wait_status);
  if (WIFSIGNALED(wait_status)) result.signal = WTERMSIG(wait_status);
  return result;
}

RunResult run_program(const std::vector<std::string>& argv,
                      const std::vector<std::string>& extra_environment) {
  return run_function([&] {
    for (const std::string& entry : extra_environment) putenv(const_cast<char*>(entry.c_str()));
    std::vector<char*> words;
    for (const std::string& word : argv) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    execv(words[0], words.data());
    std::perror(words[0]);
    return 127;
  });
}
