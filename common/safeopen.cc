#include "common/safeopen.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "common/base/descriptor.h"
#include "common/base/links.h"

namespace {

int openStart(const std::string& path) {
  return ::open(path.starts_with('/') ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC);
}

bool onlyOurs(int folder) {
  struct stat info {};
  if (fstat(folder, &info) != 0) return false;
  const bool ours = info.st_uid == 0 || info.st_uid == geteuid();
  return ours && (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Without O_NONBLOCK the open of a pipe would wait for a reader; the writes shall wait.
int openFile(int folder, const std::string& name) {
  const int flags = O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY;
  Descriptor fd(::openat(folder, name.c_str(), flags | O_NONBLOCK, 0640));
  return fd && fcntl(fd.get(), F_SETFL, O_APPEND) == 0 ? fd.release() : -1;
}

// The target of a link, or empty with errno: EINVAL when the name is no link.
std::string linkTarget(int folder, const std::string& name) {
  char target[PATH_MAX];
  const ssize_t length = ::readlinkat(folder, name.c_str(), target, sizeof target);
  return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

std::string takeFirst(std::string& path) {
  const std::size_t end = path.find('/');
  std::string first = path.substr(0, end);
  path.erase(0, end == std::string::npos ? end : path.find_first_not_of('/', end));
  return first;
}

}  // namespace

// Every step is taken relative to the open folder before it, so nothing can be exchanged between
// the check and the use.
int openForAppending(const std::string& path) {
  Descriptor folder(openStart(path));
  std::string rest = path.substr(std::min(path.find_first_not_of('/'), path.size()));
  int links = 0;
  while (folder.get() >= 0) {
    const bool last = rest.find('/') == std::string::npos;
    const std::string name = takeFirst(rest);
    const std::string target = linkTarget(folder.get(), name);
    if (target.empty()) {
      if (last) return openFile(folder.get(), name);
      folder.reset(
          ::openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      continue;
    }
    if (!onlyOurs(folder.get()) || ++links > max_links) {
      errno = ELOOP;
      return -1;
    }
    std::string rest_of_target =
        target.substr(std::min(target.find_first_not_of('/'), target.size()));
    if (!last) rest_of_target.append("/").append(rest);
    rest = rest_of_target;
    if (target.starts_with('/')) folder.reset(openStart(target));
  }
  return -1;
}
