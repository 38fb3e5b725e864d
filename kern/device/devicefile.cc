#include "kern/device/devicefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "kern/device/settings.h"

namespace {

bool open_and_close(const std::string& path, int extra_flags, mode_t mode, int& error) {
  const int fd = open(path.c_str(), device_open_flags() | extra_flags | O_NONBLOCK, mode);
  error = fd < 0 ? errno : 0;
  if (fd >= 0 && close(fd) != 0) {
    error = errno;
    if ((extra_flags & O_EXCL) != 0) unlink(path.c_str());
  }
  return error == 0;
}

}  // namespace

int device_open_flags() {
  const int access = readVerify != 0 ? O_RDONLY : O_RDWR | O_CREAT | O_TRUNC;
  const int synchronous = syncsz == -1 ? O_DSYNC : 0;
  return access | synchronous | O_LARGEFILE | O_CLOEXEC | O_NOCTTY;
}

int unusable_kind(mode_t mode) {
  if (S_ISREG(mode) || S_ISCHR(mode) || S_ISBLK(mode)) return 0;
  return S_ISDIR(mode) ? EISDIR : ENOTSUP;
}

bool mox_create_file(const std::string& path, int& error, int extra_flags) {
  return open_and_close(path, extra_flags, 0600, error);
}

bool mox_test_open_file(const std::string& path, int& error) {
  return open_and_close(path, 0, 0, error);
}

bool mox_unlink(const std::string& path) {
  return unlink(path.c_str()) == 0;
}

std::int64_t mox_file_size(const std::string& path, int& error) {
  struct stat status {};
  error = stat(path.c_str(), &status) == 0 ? 0 : errno;
  return error == 0 ? status.st_size : -1;
}
