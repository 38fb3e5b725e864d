#include "common/base/pathwalk.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace {

Descriptor openStart(const std::string& path) {
  return Descriptor(open(path.starts_with('/') ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::string withoutLeadingSlashes(const std::string& path) {
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

std::string takeFirst(std::string& path) {
  const std::size_t end = path.find('/');
  std::string first = path.substr(0, end);
  path.erase(0, end == std::string::npos ? end : path.find_first_not_of('/', end));
  return first;
}

std::string linkTarget(int link) {
  char target[PATH_MAX];
  const ssize_t length = readlinkat(link, "", target, sizeof target);
  return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

PathEnd failed(int error) {
  errno = error;
  return {};
}

}  // namespace

bool belongsToUs(const struct stat& status) {
  return status.st_uid == 0 || status.st_uid == geteuid();
}

LinkIs linkInSafeFolder(const struct stat& folder, const struct stat& /*link*/) {
  const bool safe = belongsToUs(folder) && (folder.st_mode & (S_IWGRP | S_IWOTH)) == 0;
  return safe ? LinkIs::FOLLOWED : LinkIs::REFUSED;
}

LinkIs trustedLink(const struct stat& folder, const struct stat& link) {
  return belongsToUs(link) ? LinkIs::FOLLOWED : linkInSafeFolder(folder, link);
}

PathEnd walkPath(const std::string& path, LinkRule rule) {
  PathEnd at{openStart(path), {}};
  std::string rest = withoutLeadingSlashes(path);
  int links = 0;
  while (at.folder) {
    const bool last = rest.find('/') == std::string::npos;
    at.name = takeFirst(rest);
    Descriptor next(openat(at.folder.get(), at.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!next || fstat(next.get(), &status) != 0) {
      return last && errno == ENOENT ? std::move(at) : failed(errno);
    }
    if (!S_ISLNK(status.st_mode)) {
      if (last) return at;
      at.folder = std::move(next);
      continue;
    }
    struct stat folder {};
    if (fstat(at.folder.get(), &folder) != 0) return failed(errno);
    const LinkIs verdict = rule(folder, status);
    if (verdict == LinkIs::THE_END && last) return at;
    if (verdict == LinkIs::REFUSED || ++links > max_links) return failed(ELOOP);
    const std::string target = linkTarget(next.get());
    if (target.empty()) return failed(errno);
    const std::string behind = last ? std::string() : "/" + rest;
    rest = withoutLeadingSlashes(target) + behind;
    if (target.starts_with('/')) at.folder = openStart(target);
  }
  return at;
}

// Where everybody may write, somebody else may have made the file beforehand, to read the log or,
// with a pipe that he does not empty, to stop the writer; or have made it a second name of another
// file of ours. A group that shares a folder shares its files, but not a pipe.
bool mayBeTaken(int folder, int fd) {
  struct stat place {};
  struct stat file {};
  if (fstat(folder, &place) != 0 || fstat(fd, &file) != 0) return false;
  const mode_t others = S_ISREG(file.st_mode) ? S_IWOTH : S_IWOTH | S_IWGRP;
  const bool second_name = S_ISREG(file.st_mode) && file.st_nlink > 1;
  if ((place.st_mode & others) == 0 || (belongsToUs(file) && !second_name)) return true;
  errno = EACCES;
  return false;
}
