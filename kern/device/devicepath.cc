#include "kern/device/devicepath.h"

#include <unistd.h>

#include <cerrno>
#include <climits>

#include "common/base/pathwalk.h"

std::string resolve_symlink(const std::string& path, int& error) {
  std::string at = path;
  for (int links = 0; links <= max_links; ++links) {
    char target[PATH_MAX];
    const ssize_t length = readlink(at.c_str(), target, sizeof target);
    if (length < 0) {
      error = errno == EINVAL || errno == ENOENT ? 0 : errno;  // no link, or nothing there
      return at;
    }
    const std::string link(target, static_cast<std::size_t>(length));
    at = link.starts_with('/') ? link : get_dirname(at).append("/").append(link);
  }
  error = ELOOP;
  return at;
}

std::string get_dirname(const std::string& path) {
  const auto end_without_slashes = [&path](std::size_t end) {
    while (end > 1 && path[end - 1] == '/') --end;
    return end;
  };
  const std::size_t end = end_without_slashes(path.size());
  const std::size_t slash = path.substr(0, end).rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, end_without_slashes(slash));
}
