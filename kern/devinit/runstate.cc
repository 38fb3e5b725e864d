#include "kern/devinit/runstate.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "common/base/printable.h"
#include "common/interrupt.h"
#include "kern/device/diskinfo.h"
#include "kern/device/settings.h"
#include "kern/device/transfer.h"
#include "kern/devinit/asyncqueue.h"
#include "kern/devinit/meter.h"

std::string clean_name;
int clean_fd = -1;
int nodio = 0;
int deepfrom = 450;
std::uint64_t devwritten = 0;
std::uint64_t totdevsize = 0;

namespace {

struct Guarded {
  PathEnd end;
  std::string path;        // until it is clean_name
  std::string shown_path;  // printable
};

Guarded guarded;

void forget() {
  clean_fd = -1;
  clean_name.clear();
  guarded = Guarded();
}

void remove_unfinished_file(const struct stat& opened) {
  const char* name = guarded.end.name.c_str();
  struct stat present {};
  if (fstatat(guarded.end.folder.get(), name, &present, AT_SYMLINK_NOFOLLOW) != 0) {
    const int error = errno;
    if (error == ENOENT) return;
    devinit_report("the unfinished file cannot be looked at:", error, guarded.shown_path);
    return;
  }
  if (present.st_dev != opened.st_dev || present.st_ino != opened.st_ino) return;
  if (unlinkat(guarded.end.folder.get(), name, 0) != 0) {
    devinit_report("the unfinished file cannot be removed:", errno, guarded.shown_path);
  }
}

void overwrite_header() {
  static const unsigned char zeros[DiskInfo::current_header_region] = {};
  const int flags = fcntl(clean_fd, F_GETFL);  // the buffer is not aligned for direct I/O
  const bool written =
      flags >= 0 && fcntl(clean_fd, F_SETFL, flags & ~O_DIRECT) == 0 &&
      mox_pwrite(clean_fd, zeros, sizeof zeros, DiskInfo::current_header_offset) == sizeof zeros &&
      (fsync(clean_fd) == 0 || errno == EINVAL);  // character devices have nothing to sync
  if (!written) {
    devinit_report("the device may pass for an initialized one, its header cannot be overwritten:",
                   errno, guarded.shown_path);
  }
}

void discard_content() {
  struct stat opened {};
  if (fstat(clean_fd, &opened) != 0) {
    devinit_report("the unfinished file cannot be looked at:", errno, guarded.shown_path);
  } else if (S_ISREG(opened.st_mode)) {
    remove_unfinished_file(opened);
  } else {
    overwrite_header();
  }
}

}  // namespace

void reset_run() {
  forget();
  nodio = 0;
  syncsz = 32;
  readVerify = 0;
  devwritten = 0;
  totdevsize = 0;
}

void guard_place(PathEnd end, const std::string& path) {
  guarded = {std::move(end), path, printable(path)};
}

const PathEnd& guarded_place() {
  return guarded.end;
}

void guard_file(Descriptor file) {
  clean_fd = file.release();
}

void guard_content() {
  if (clean_name.empty()) clean_name.swap(guarded.path);
}

int close_guarded_file() {
  const int error = close(clean_fd) != 0 ? errno : 0;
  clean_fd = -1;
  return error;
}

int release_file() {
  struct stat opened {};
  const bool removable = !clean_name.empty() && fstat(clean_fd, &opened) == 0;
  const int error = close_guarded_file();
  if (error != 0 && removable && S_ISREG(opened.st_mode)) remove_unfinished_file(opened);
  forget();
  return error;
}

void cleanup() {
  if (clean_fd < 0) return;
  async_queue().drain();
  if (!clean_name.empty()) discard_content();
  close(clean_fd);  // the error that led here has been reported; one more would say nothing new
  forget();
}

void checkpoint() {
  const int signal = pendingInterrupt();
  if (signal == 0) return;
  erase_meter();
  cleanup();
  dieOfSignal(signal);
}

void flush_report() {
  (void)std::fflush(stdout);
}

void devinit_report(const char* text, int os_error, const std::string& object) {
  erase_meter();
  flush_report();  // so that the error stands behind what was printed before it
  const char* os_text = os_error != 0 ? std::strerror(os_error) : "";
  (void)std::fprintf(stderr, "\nDEVINIT-ERROR: %s%s%s%s%s\n", text, object.empty() ? "" : " ",
                     object.c_str(), os_error != 0 ? " " : "", os_text);
}

void devinit_fail(const char* text, int os_error, const std::string& object) {
  if (os_error == EINTR) checkpoint();  // the interrupt is the reason
  devinit_report(text, os_error, object);
  cleanup();
  std::exit(1);
}
