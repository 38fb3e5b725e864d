#include "kern/devicespace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>

#include "kern/devicefile.h"
#include "kern/devicepath.h"
#include "kern/diskinfo.h"
#include "kern/initstate.h"
#include "kern/transfer.h"

namespace {

constexpr std::int64_t unit = 1024;
constexpr std::int64_t max_units = std::int64_t{1} << 52;

bool unit_is_readable(int fd, std::int64_t index) {
  char bytes[unit];
  return mox_pread(fd, bytes, unit, index * unit) == unit;
}

std::int64_t count_readable_units(int fd) {
  std::int64_t readable = 0;
  std::int64_t unreadable = 1;
  while (unit_is_readable(fd, unreadable - 1)) {
    readable = unreadable;
    if (readable == max_units) return readable;
    unreadable *= 2;
  }
  while (unreadable - readable > 1) {
    const std::int64_t middle = readable + (unreadable - readable) / 2;
    (unit_is_readable(fd, middle - 1) ? readable : unreadable) = middle;
  }
  return readable;
}

// Returns 0 or the errno.
int free_space(const std::string& path, std::uint64_t& bytes) {
  struct statvfs volume {};
  if (statvfs(path.c_str(), &volume) != 0) return errno;
  bytes = std::uint64_t{volume.f_frsize} * volume.f_bavail;
  return 0;
}

int existing_device_info(const std::string& path, const struct stat& status, std::uint64_t& space) {
  if (const int error = unusable_kind(status.st_mode); error != 0) return error;
  if (S_ISREG(status.st_mode)) return free_space(path, space);
  space = static_cast<std::uint64_t>(findsize(path));
  return 0;
}

int missing_device_info(const std::string& path, struct stat& folder_status, std::uint64_t& space) {
  int error = 0;
  const std::string folder = get_dirname(resolve_symlink(path, error));
  if (error != 0) return error;
  if (stat(folder.c_str(), &folder_status) != 0) return errno;
  return free_space(folder, space);
}

std::uint64_t free_space_or_fail(const std::string& path) {
  std::uint64_t bytes = 0;
  if (const int error = free_space(path, bytes); error != 0) devinit_fail("statvfs", error);
  return bytes;
}

std::uint64_t space_for_new_file(const std::string& path) {
  int error = 0;
  const std::string target = resolve_symlink(path, error);
  if (error != 0) devinit_fail("Cannot stat");
  return free_space_or_fail(get_dirname(target));
}

}  // namespace

bool device_info(const std::string& path, std::uint32_t& device, bool& exists, std::uint64_t& space,
                 int& error) {
  error = 0;
  exists = false;
  space = 0;
  if (path.empty()) return false;
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) {
    exists = true;
    error = existing_device_info(path, status, space);
  } else {
    error = errno == ENOENT ? missing_device_info(path, status, space) : errno;
  }
  device = static_cast<std::uint32_t>(status.st_dev);  // the kernel's device numbers have 32 bits
  return error == 0;
}

bool has_space(const std::string& path, std::uint64_t need) {
  if (path.empty()) devinit_fail("Must have file or device name");
  if (readVerify != 0) return true;
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) devinit_fail("Cannot stat");
    return space_for_new_file(path) >= need;
  }
  if (unusable_kind(status.st_mode) != 0) devinit_fail("File must be regular file or raw device");
  if (!S_ISREG(status.st_mode)) return static_cast<std::uint64_t>(findsize(path)) >= need;
  return free_space_or_fail(path) + static_cast<std::uint64_t>(status.st_size) >= need;
}

std::int64_t findsize(const std::string& path) {
  // Never creates or empties anything, should the path have become a file meanwhile.
  const int flags = (device_open_flags() & ~(O_CREAT | O_TRUNC)) | O_NONBLOCK;
  const int fd = open(path.c_str(), flags);
  if (fd < 0) return 0;
  const std::int64_t bytes = count_readable_units(fd) * unit;
  close(fd);
  return bytes;
}

std::uint64_t mox_phys_space(std::uint64_t payload) {
  constexpr std::uint32_t block = 4096;
  constexpr std::uint64_t header = DiskInfo::current_data_offset / block;
  const std::uint64_t blocks = payload / block + (payload % block != 0 ? 1 : 0);
  const std::uint64_t on_disk = blocks + bitmap_blocks(blocks, block) + header;
  return on_disk <= UINT64_MAX / block ? on_disk * block : UINT64_MAX;
}
