#include "common/safeopen.h"

#include <fcntl.h>

#include "common/base/pathwalk.h"

// Without O_NONBLOCK the open of a pipe would wait for a reader; the writes shall wait.
int openForAppending(const std::string& path) {
  const PathEnd end = walkPath(path, linkInSafeFolder);
  if (!end.folder) return -1;
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;
  Descriptor fd(openat(end.folder.get(), end.name.c_str(), flags | O_NONBLOCK, 0640));
  return fd && fcntl(fd.get(), F_SETFL, O_APPEND) == 0 ? fd.release() : -1;
}
