#include "kern/mox_node/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "common/base/printable.h"
#include "common/interrupt.h"
#include "kern/mox_node/failure.h"

namespace moxnode {

namespace {

constexpr int max_interruptions = 100;

// 0, or the errno.
int write_whole(int fd, std::string_view text) {
  std::size_t done = 0;
  int interruptions = 0;
  while (done < text.size()) {
    const ssize_t count = ::write(fd, text.data() + done, text.size() - done);
    if (count >= 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno != EINTR || pendingInterrupt() != 0 || ++interruptions == max_interruptions) {
      return errno;
    }
  }
  return 0;
}

// As open() would have made it: mkostemp leaves out the group and the others.
mode_t mode_of_new_files() {
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// 0, or the errno. The file is complete on disk before it gets its name.
int write_file(Descriptor& file, std::string_view text, const std::string& at,
               const std::string& name) {
  if (const int error = write_whole(file.get(), text); error != 0) return error;
  if (fchmod(file.get(), mode_of_new_files()) != 0 || fsync(file.get()) != 0) return errno;
  if (const int error = file.close(); error != 0) return error;
  return rename(at.c_str(), name.c_str()) == 0 ? 0 : errno;
}

// Renaming over a device or a link would put a file in its place.
void refuse_other_than_file(const std::string& name) {
  struct stat status {};
  if (lstat(name.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    throw Failure("writing " + printable(name) + ": it is no regular file");
  }
}

void replace_file(std::string_view text, const std::string& name) {
  // A signal would leave the half-written file behind.
  if (const int error = holdInterrupts(); error != 0) throw Failure("holding signals", error);
  refuse_other_than_file(name);
  std::string beside = name + ".XXXXXX";
  Descriptor file(mkostemp(beside.data(), O_CLOEXEC));
  if (!file) throw Failure("writing " + printable(name), errno);
  const int error = write_file(file, text, beside, name);
  if (error != 0) unlink(beside.c_str());
  if (pendingInterrupt() != 0) dieOfSignal(pendingInterrupt());
  if (error != 0) throw Failure("writing " + printable(name), error);
}

}  // namespace

Output::Output() : standard_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
  if (!standard_ || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    throw Failure("moving standard output", errno);
  }
}

bool Output::is_coloured() const {
  const char* const no_colour = std::getenv("NO_COLOR");
  return (no_colour == nullptr || *no_colour == '\0') && isatty(standard_.get()) == 1;
}

void Output::write(std::string_view text, const std::string& file) {
  if (!file.empty()) return replace_file(text, file);
  const int error = write_whole(standard_.get(), text);
  if (error == EINTR && pendingInterrupt() != 0) dieOfSignal(pendingInterrupt());
  if (error != 0) throw Failure("writing standard output", error);
}

}  // namespace moxnode
