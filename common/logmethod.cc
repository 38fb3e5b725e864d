#include "common/logmethod.h"

#include <fcntl.h>
#include <stdio_ext.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "common/base/descriptor.h"
#include "common/logtrouble.h"
#include "common/safeopen.h"

namespace {

int live_count = 0;

// By lines, so that a line reaches the file in one write and lines of several processes that share
// a file stay whole.
std::FILE* openStream(int fd) {
  Descriptor owned(fd);
  std::FILE* stream = fdopen(fd, "w");
  if (stream == nullptr) return nullptr;
  owned.release();
  std::setvbuf(stream, nullptr, _IOLBF, 8192);
  return stream;
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
  return stream_ != nullptr;
}

void LogMethod::initialize() {
  initialized_ = true;
  if (kind_ == TO_FILE) openFile();
  if (kind_ == TO_STDOUT) duplicate(stdout, "stdout");
  if (kind_ == TO_STDERR) duplicate(stderr, "stderr");
}

void LogMethod::openFile() {
  const int fd = openForAppending(file_name_);
  if (fd >= 0) stream_ = openStream(fd);
  const int error = errno;
  if (stream_ == nullptr) warnLogTrouble(("open file " + file_name_).c_str(), error);
}

void LogMethod::duplicate(std::FILE* stream, const char* name) {
  const int fd = fcntl(fileno(stream), F_DUPFD_CLOEXEC, 0);
  if (fd >= 0) stream_ = openStream(fd);
  const int error = errno;
  if (stream_ == nullptr) warnLogTrouble(("dup(" + std::string(name) + ")").c_str(), error);
}

void LogMethod::write(const char* line) {
  if (kind_ < NOWHERE || kind_ > TO_STDERR) {
    std::fputs("Illegal log-level", stderr);
    return;
  }
  if (!open()) return;
  if (kind_ == TO_STDOUT) std::fflush(stdout);  // keeps the order of lines and reports
  const SlowWatch watch;
  if (std::fputs(line, stream_) == EOF) {
    loseLine(errno);
    return;
  }
  watch.report(stream_, "Last fputs");
}

void LogMethod::flushFile() {
  if (stream_ == nullptr) return;
  const SlowWatch watch;
  if (std::fflush(stream_) == EOF) {
    loseLine(errno);
    return;
  }
  watch.report(stream_, "Last flush");
}

// What could not be written is dropped, so that it does not turn up later in the midst of others.
void LogMethod::loseLine(int os_error) {
  __fpurge(stream_);
  std::clearerr(stream_);
  if (told_loss_) return;
  told_loss_ = true;
  const std::string name = kind_ == TO_FILE     ? "file " + file_name_
                           : kind_ == TO_STDOUT ? "stdout"
                                                : "stderr";
  warnLogTrouble(("write " + name).c_str(), os_error);
}

void LogMethod::close() {
  if (stream_ == nullptr) return;
  const int failed = std::fclose(stream_);
  const int error = errno;
  stream_ = nullptr;
  if (failed == 0) return;
  if (kind_ == TO_FILE) {
    std::printf("WRN could not close file %s errno:%d\n", file_name_.c_str(), error);
    std::fflush(stdout);
  } else {
    warnLogTrouble(kind_ == TO_STDOUT ? "close(stdout)" : "close(stderr)", error);
  }
}
