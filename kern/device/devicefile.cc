#include "kern/device/devicefile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <utility>

#include "common/base/pathwalk.h"
#include "kern/device/devicepath.h"
#include "kern/device/settings.h"

namespace {

// The descriptor that other files of the folder have already, so that a command of many files does
// not meet the limit of open files; otherwise this one.
std::shared_ptr<const Descriptor> shared_folder(Descriptor folder, const struct stat& status) {
  static std::map<std::pair<dev_t, ino_t>, std::weak_ptr<const Descriptor>> in_use;
  std::weak_ptr<const Descriptor>& known = in_use[{status.st_dev, status.st_ino}];
  std::shared_ptr<const Descriptor> result = known.lock();
  if (!result) known = result = std::make_shared<const Descriptor>(std::move(folder));
  return result;
}

// Whatever needs memory is done before there is a file. 0 or the errno.
int open_at(const std::string& path, int flags, mode_t mode, MadeFile& place, Descriptor& file) {
  PathEnd end = walkPath(path, trustedLink);
  struct stat status {};
  if (!end.folder || fstat(end.folder.get(), &status) != 0) return errno;
  place.folder = shared_folder(std::move(end.folder), status);
  place.name = std::move(end.name);
  flags |= O_NOFOLLOW | O_NONBLOCK;
  file.reset(openat(place.folder->get(), place.name.c_str(), flags, mode));
  return file ? 0 : errno;
}

int remove(const MadeFile& file) {
  return unlinkat(file.folder->get(), file.name.c_str(), 0);
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

bool mox_create_file(const std::string& path, int& error, MadeFile* made) {
  MadeFile place;
  Descriptor file;
  error = open_at(path, device_open_flags() | (made != nullptr ? O_EXCL : 0), 0600, place, file);
  if (error != 0) return false;
  struct stat status {};
  if (fstat(file.get(), &status) != 0) error = errno;
  if (error == 0) error = file.close();
  if (made != nullptr) {
    if (error != 0) remove(place);
    *made = std::move(place);
    made->device = status.st_dev;
    made->inode = status.st_ino;
  }
  return error == 0;
}

bool mox_test_open_file(const std::string& path, int& error, std::uint64_t* emptied) {
  MadeFile place;
  Descriptor file;
  struct stat status {};
  error = open_at(path, device_open_flags() & ~(O_CREAT | O_TRUNC), 0, place, file);
  if (error == 0 && fstat(file.get(), &status) != 0) error = errno;
  const bool writes = error == 0 && readVerify == 0;
  if (writes && !mayBeTaken(place.folder->get(), file.get())) error = errno;
  const bool empties = writes && error == 0 && S_ISREG(status.st_mode);
  if (empties && ftruncate(file.get(), 0) != 0) error = errno;
  if (emptied != nullptr)
    *emptied = empties && error == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
  if (error == 0) error = file.close();
  return error == 0;
}

bool mox_unlink(const std::string& path, struct stat* was) {
  const std::size_t slash = path.rfind('/', path.find_last_not_of('/'));
  const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  const PathEnd folder = walkPath(get_dirname(path) + "/.", trustedLink);
  if (!folder.folder) return false;
  const int in = folder.folder.get();
  if (was != nullptr && fstatat(in, name.c_str(), was, AT_SYMLINK_NOFOLLOW) != 0) return false;
  return unlinkat(in, name.c_str(), 0) == 0;
}

bool mox_unlink(const MadeFile& file) {
  struct stat status {};
  if (fstatat(file.folder->get(), file.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
    return false;
  if (status.st_dev != file.device || status.st_ino != file.inode) {
    errno = ESTALE;
    return false;
  }
  return remove(file) == 0;
}

std::int64_t mox_file_size(const std::string& path, int& error) {
  struct stat status {};
  error = stat(path.c_str(), &status) == 0 ? 0 : errno;
  return error == 0 ? status.st_size : -1;
}
