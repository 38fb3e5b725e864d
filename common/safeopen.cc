#include "common/safeopen.h"

#include <fcntl.h>

#include <cerrno>

#include "common/base/number.h"
#include "common/base/pathwalk.h"

namespace {

bool isSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The links of the process's own descriptors name no path.
LinkIs ownDescriptorEnds(const struct stat& folder, const struct stat& link) {
  struct stat own {};
  const bool ours = stat("/proc/self/fd", &own) == 0 && isSame(folder, own);
  return ours ? LinkIs::THE_END : linkInSafeFolder(folder, link);
}

bool isLink(const PathEnd& end) {
  struct stat status {};
  return fstatat(end.folder.get(), end.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISLNK(status.st_mode);
}

}  // namespace

int openForAppending(const std::string& path) {
  const PathEnd end = walkPath(path, ownDescriptorEnds);
  if (!end.folder) return -1;
  if (isLink(end)) {
    // Not opened again: of a socket, and of a terminal after a change of the user, that is refused.
    const auto number = readNumber(end.name.c_str(), 10);
    return number ? fcntl(static_cast<int>(number->value), F_DUPFD_CLOEXEC, 0) : -1;
  }
  // Without O_NONBLOCK the open of a pipe would wait for a reader; the writes shall wait.
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;
  Descriptor fd(openat(end.folder.get(), end.name.c_str(), flags | O_NONBLOCK, 0640));
  const bool taken =
      fd && mayBeTaken(end.folder.get(), fd.get()) && fcntl(fd.get(), F_SETFL, O_APPEND) == 0;
  return taken ? fd.release() : -1;
}
