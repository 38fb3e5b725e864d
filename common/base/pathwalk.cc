#include "common/base/pathwalk.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace {

Descriptor open_start(const std::string& path) {
  return Descriptor(open(path.starts_with('/') ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::string without_leading_slashes(const std::string& path) {
  return path.substr(std::min(path.find_first_not_of('/'), path.size()));
}

std::string take_first(std::string& path) {
  const std::size_t end = path.find('/');
  std::string first = path.substr(0, end);
  path.erase(0, end == std::string::npos ? end : path.find_first_not_of('/', end));
  return first;
}

bool is_ours(const struct stat& status) {
  return status.st_uid == 0 || status.st_uid == geteuid();
}

// Empty, with errno, when the link may not be followed or cannot be read.
std::string link_target(int folder, int link, const struct stat& link_status, LinkRule may_follow) {
  struct stat folder_status {};
  if (fstat(folder, &folder_status) != 0) return {};
  if (!may_follow(folder_status, link_status)) {
    errno = ELOOP;
    return {};
  }
  char target[PATH_MAX];
  const ssize_t length = readlinkat(link, "", target, sizeof target);
  return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

PathEnd failed(int error) {
  errno = error;
  return {};
}

}  // namespace

bool linkInSafeFolder(const struct stat& folder, const struct stat& /*link*/) {
  return is_ours(folder) && (folder.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

bool trustedLink(const struct stat& folder, const struct stat& link) {
  return is_ours(link) || linkInSafeFolder(folder, link);
}

PathEnd walkPath(const std::string& path, LinkRule may_follow) {
  PathEnd at{open_start(path), {}};
  std::string rest = without_leading_slashes(path);
  int links = 0;
  while (at.folder) {
    const bool last = rest.find('/') == std::string::npos;
    at.name = take_first(rest);
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
    if (++links > max_links) return failed(ELOOP);
    const std::string target = link_target(at.folder.get(), next.get(), status, may_follow);
    if (target.empty()) return failed(errno);
    const std::string behind = last ? std::string() : "/" + rest;
    rest = without_leading_slashes(target) + behind;
    if (target.starts_with('/')) at.folder = open_start(target);
  }
  return at;
}
