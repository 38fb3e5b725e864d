#include "kern/devinit/runstate.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/interrupt.h"
#include "kern/device/settings.h"

std::string clean_name;
int clean_fd = -1;
int nodio = 0;
std::uint64_t devwritten = 0;
std::uint64_t totdevsize = 0;

namespace {

// Names the file when it cannot be removed.
void remove_unfinished_file() {
  struct stat opened {};
  struct stat named {};
  if (fstat(clean_fd, &opened) != 0 || lstat(clean_name.c_str(), &named) != 0) {
    if (errno != ENOENT) devinit_report(("stat " + clean_name).c_str(), errno);
    return;
  }
  const bool ours =
      S_ISREG(named.st_mode) && opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
  if (ours && unlink(clean_name.c_str()) != 0) {
    devinit_report(("unlink " + clean_name).c_str(), errno);
  }
}

}  // namespace

void cleanup() {
  if (clean_fd < 0) return;
  if (readVerify == 0) remove_unfinished_file();
  close(clean_fd);  // the error that led here has been told; one more would say nothing new
  clean_fd = -1;
  clean_name.clear();
}

void checkpoint() {
  const int signal = pendingInterrupt();
  if (signal == 0) return;
  cleanup();
  dieOfSignal(signal);
}

void flush_report() {
  (void)std::fflush(stdout);
}

void devinit_report(const char* text, int os_error) {
  flush_report();  // so that the error stands behind what was printed before it
  if (os_error != 0) {
    (void)std::fprintf(stderr, "\nDEVINIT-ERROR: %s %s\n", text, std::strerror(os_error));
  } else {
    (void)std::fprintf(stderr, "\nDEVINIT-ERROR: %s\n", text);
  }
}

void devinit_fail(const char* text, int os_error) {
  devinit_report(text, os_error);
  cleanup();
  std::exit(1);
}
