#include "kern/devinit/target.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "common/base/pathwalk.h"
#include "common/base/printable.h"
#include "kern/device/devicefile.h"
#include "kern/device/devicespace.h"
#include "kern/device/settings.h"
#include "kern/devinit/runstate.h"

namespace {

void refuse_unusable(mode_t mode) {
  if (unusable_kind(mode) != 0) devinit_fail("File must be regular file or raw device");
}

[[noreturn]] void fail_for_holder(const std::string& path) {
  devinit_fail("in use (mounted, swap, part of an array or volume, or being initialized):", EBUSY,
               printable(path));
}

// The kind is looked at before the open: that of a FIFO would fail in other words.
mode_t kind_of(const PathEnd& end) {
  struct stat status {};
  if (fstatat(end.folder.get(), end.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT) devinit_fail("open", errno);
    return S_IFREG;  // the open creates it
  }
  refuse_unusable(status.st_mode);
  return status.st_mode;
}

// Emptying waits until the file is known to be nobody else's. A file that is created is known to be
// new, so that an error can remove it. A block device is held against a mount.
Descriptor open_file(const PathEnd& end, mode_t kind, bool& created) {
  const int flags = (device_open_flags() & ~(O_CREAT | O_TRUNC)) | O_NOFOLLOW | O_NONBLOCK;
  const int exclusive = readVerify == 0 && S_ISBLK(kind) ? O_EXCL : 0;
  Descriptor file(openat(end.folder.get(), end.name.c_str(), flags | exclusive));
  created = !file && errno == ENOENT && readVerify == 0;
  if (created) {
    file.reset(openat(end.folder.get(), end.name.c_str(), flags | O_CREAT | O_EXCL, 0600));
  }
  return file;
}

void open_guarded_file(const std::string& path) {
  const PathEnd& end = guarded_place();
  const mode_t kind = kind_of(end);
  bool created = false;
  Descriptor file = open_file(end, kind, created);
  const int error = errno;
  if (!file && error == EBUSY && S_ISBLK(kind)) fail_for_holder(path);
  if (!file) devinit_fail("open", error);
  guard_file(std::move(file));
  if (created) guard_content();
  if (readVerify == 0 && !mayBeTaken(end.folder.get(), clean_fd)) devinit_fail("open", errno);
  struct stat status {};
  if (fstat(clean_fd, &status) != 0) devinit_fail("fstat", errno);
  refuse_unusable(status.st_mode);
  // Another kind than a moment ago would have been opened in another way.
  if ((status.st_mode & S_IFMT) != (kind & S_IFMT)) devinit_fail("open", ESTALE);
  const int flags = fcntl(clean_fd, F_GETFL);
  if (flags < 0 || fcntl(clean_fd, F_SETFL, flags & ~O_NONBLOCK) != 0) devinit_fail("fcntl", errno);
}

// A file system without locks protects nobody.
void lock(const std::string& path) {
  if (flock(clean_fd, LOCK_EX | LOCK_NB) == 0) return;
  const int error = errno;
  if (error == EWOULDBLOCK) {
    close_guarded_file();  // even a file that this run has created is the other's by now
    devinit_fail("another process is initializing:", 0, printable(path));
  }
  if (error != ENOLCK && error != EOPNOTSUPP && error != ENOSYS) devinit_fail("flock", error);
}

// The run that held the lock before may have failed, and have removed the file.
bool is_still_there() {
  const PathEnd& end = guarded_place();
  struct stat opened {};
  struct stat named {};
  if (fstat(clean_fd, &opened) != 0) devinit_fail("fstat", errno);
  return fstatat(end.folder.get(), end.name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

void empty_regular_file() {
  struct stat status {};
  if (fstat(clean_fd, &status) != 0) devinit_fail("fstat", errno);
  if (!S_ISREG(status.st_mode)) return;
  guard_content();
  if (ftruncate(clean_fd, 0) != 0) devinit_fail("ftruncate", errno);
}

}  // namespace

bool is_device(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) devinit_fail("Cannot stat");
  return S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
}

bool has_space(const std::string& path, std::uint64_t need) {
  if (path.empty()) devinit_fail("Must have file or device name");
  if (readVerify != 0) return true;
  const Place place = look_at(path);
  switch (place.trouble) {
    case Place::Trouble::NO_STATUS:
      devinit_fail("Cannot stat");
    case Place::Trouble::UNUSABLE_KIND:
      devinit_fail("File must be regular file or raw device");
    case Place::Trouble::NO_SPACE:
      devinit_fail("statvfs", place.error);
    case Place::Trouble::NONE:
      break;
  }
  return place.space + place.held >= need;
}

void refuse_held_device(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) return;
  const Descriptor file(open(path.c_str(), O_RDONLY | O_EXCL | O_NONBLOCK | O_CLOEXEC));
  if (!file && errno == EBUSY) fail_for_holder(path);
}

void open_target(const std::string& path) {
  PathEnd end = walkPath(path, trustedLink);
  if (!end.folder) devinit_fail("open", errno);
  guard_place(std::move(end), path);
  open_guarded_file(path);
  if (readVerify != 0) return;
  lock(path);
  if (!is_still_there()) devinit_fail("open", ESTALE);
  empty_regular_file();
}
