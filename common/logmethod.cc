#include "common/logmethod.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

#include "common/base/printable.h"
#include "common/logtrouble.h"
#include "common/quietwrite.h"
#include "common/safeopen.h"

namespace {

int live_count = 0;

bool filesAreLimited() {
  rlimit limit{};
  return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
}

// Another process may have made a shared pipe or terminal return at once.
void waitForSpace(int fd) {
  pollfd waiting{fd, POLLOUT, 0};
  static_cast<void>(poll(&waiting, 1, -1));
}

}  // namespace

LogMethod::LogMethod(Kind kind, std::string file_name)
    : kind_(kind), file_name_(std::move(file_name)) {
  ++live_count;
}

LogMethod::~LogMethod() {
  close();
  --live_count;
}

int LogMethod::liveCount() {
  return live_count;
}

bool LogMethod::open() {
  if (!initialized_) initialize();
  return static_cast<bool>(fd_);
}

void LogMethod::initialize() {
  initialized_ = true;
  const auto duplicate = [](int fd) { return Descriptor(fcntl(fd, F_DUPFD_CLOEXEC, 0)); };
  if (kind_ == TO_FILE) adopt(Descriptor(openForAppending(file_name_)), "open " + name());
  if (kind_ == TO_STDOUT) adopt(duplicate(STDOUT_FILENO), "dup(stdout)");
  if (kind_ == TO_STDERR) adopt(duplicate(STDERR_FILENO), "dup(stderr)");
}

// Without a descriptor the destination stays as it is.
void LogMethod::adopt(Descriptor fd, const std::string& what) {
  struct stat info {};
  if (!fd || fstat(fd.get(), &info) != 0) return warnLogTrouble(what, errno);
  fd_ = std::move(fd);
  device_ = info.st_dev;
  inode_ = info.st_ino;
  const bool regular = S_ISREG(info.st_mode);
  write_raises_signal_ = regular ? filesAreLimited() : !S_ISCHR(info.st_mode);
  can_be_renamed_ = regular && kind_ == TO_FILE;
  cut_off_ = false;
}

// Asked for no time stamps, which on some kernels would make each write store new ones.
void LogMethod::followRename() {
  struct statx present {};
  const bool there =
      statx(AT_FDCWD, file_name_.c_str(), AT_STATX_DONT_SYNC, STATX_INO, &present) == 0;
  const dev_t device = makedev(present.stx_dev_major, present.stx_dev_minor);
  if (there ? device == device_ && present.stx_ino == inode_ : errno != ENOENT) return;
  adopt(Descriptor(openForAppending(file_name_)), "open " + name());
}

void LogMethod::write(std::string_view message) {
  if (kind_ < NOWHERE || kind_ > TO_STDERR) {
    std::fputs("Illegal log-level", stderr);
    return;
  }
  if (!open()) return;
  if (can_be_renamed_) followRename();
  const SlowWatch watch;
  const int error = cut_off_ ? put(std::string("\n").append(message)) : put(message);
  if (error != 0) return loseMessage(error);
  told_loss_ = false;
  const std::string complaint = watch.complaint("Last fputs");
  if (!complaint.empty()) put(complaint);
}

// 0, or the errno that ended the writing.
int LogMethod::put(std::string_view text) {
  std::optional<QuietWrite> quiet;
  if (write_raises_signal_) quiet.emplace();
  while (!text.empty()) {
    const ssize_t written = ::write(fd_.get(), text.data(), text.size());
    if (written > 0) {
      cut_off_ = text[static_cast<std::size_t>(written) - 1] != '\n';
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (written < 0 && errno == EAGAIN) {
      waitForSpace(fd_.get());
    } else if (written == 0 || errno != EINTR) {
      return written == 0 ? ENOSPC : errno;
    }
  }
  cut_off_ = false;
  return 0;
}

void LogMethod::loseMessage(int os_error) {
  if (!told_loss_) warnLogTrouble("write " + name(), os_error);
  told_loss_ = true;
}

void LogMethod::flushFile() {
  if (kind_ != TO_STDOUT) return;
  const SlowWatch watch;
  {
    const QuietWrite quiet;
    std::fflush(stdout);
  }
  const std::string complaint = watch.complaint("Last flush");
  if (!complaint.empty() && open()) put(complaint);
}

std::string LogMethod::name() const {
  return kind_ == TO_FILE ? "file " + file_name_ : kind_ == TO_STDOUT ? "stdout" : "stderr";
}

void LogMethod::close() {
  if (!fd_) return;
  const int error = fd_.close();
  if (error == 0) return;
  if (kind_ == TO_FILE) {
    printLogTrouble("WRN could not close file " + printable(file_name_) +
                    " errno:" + std::to_string(error) + "\n");
  } else {
    warnLogTrouble(kind_ == TO_STDOUT ? "close(stdout)" : "close(stderr)", error);
  }
}
