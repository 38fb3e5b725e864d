#include "kern/device/devicespace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "common/base/pathwalk.h"
#include "kern/device/devicefile.h"
#include "kern/device/devicepath.h"
#include "kern/device/diskinfo.h"
#include "kern/device/transfer.h"

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

void set_trouble(Place& place, Place::Trouble trouble, int error) {
  place.trouble = trouble;
  place.error = error;
}

void look_at_volume(const std::string& path, Place& place) {
  struct statvfs volume {};
  if (statvfs(path.c_str(), &volume) != 0) {
    set_trouble(place, Place::Trouble::NO_SPACE, errno);
  } else {
    place.space = std::uint64_t{volume.f_frsize} * volume.f_bavail;
  }
}

void look_at_existing(const std::string& path, const struct stat& status, Place& place) {
  place.exists = true;
  if (const int error = unusable_kind(status.st_mode); error != 0) {
    set_trouble(place, Place::Trouble::UNUSABLE_KIND, error);
  } else if (S_ISREG(status.st_mode)) {
    place.held = static_cast<std::uint64_t>(status.st_size);
    look_at_volume(path, place);
  } else {
    place.space = static_cast<std::uint64_t>(findsize(path));
  }
}

void look_at_folder(const std::string& path, struct stat& status, Place& place) {
  int error = 0;
  const std::string target = resolve_symlink(path, error);
  if (error != 0) return set_trouble(place, Place::Trouble::NO_STATUS, error);
  const std::string folder = get_dirname(target);
  look_at_volume(folder, place);
  if (place.error == 0 && stat(folder.c_str(), &status) != 0)
    set_trouble(place, Place::Trouble::NO_STATUS, errno);
}

}  // namespace

Place look_at(const std::string& path) {
  Place place;
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) {
    look_at_existing(path, status, place);
  } else if (errno == ENOENT) {
    look_at_folder(path, status, place);
  } else {
    set_trouble(place, Place::Trouble::NO_STATUS, errno);
  }
  place.device = static_cast<std::uint32_t>(status.st_dev);  // the kernel's numbers have 32 bits
  return place;
}

bool device_info(const std::string& path, std::uint32_t& device, bool& exists, std::uint64_t& space,
                 int& error) {
  const Place place = path.empty() ? Place() : look_at(path);
  device = place.device;
  exists = place.exists;
  space = place.space;
  error = place.error;
  return !path.empty() && place.trouble == Place::Trouble::NONE;
}

std::int64_t findsize(const std::string& path) {
  const PathEnd end = walkPath(path, trustedLink);
  if (!end.folder) return 0;
  // Never creates or empties anything, should the path have become a file meanwhile.
  const int flags = (device_open_flags() & ~(O_CREAT | O_TRUNC)) | O_NOFOLLOW | O_NONBLOCK;
  const Descriptor file(openat(end.folder.get(), end.name.c_str(), flags));
  return file ? count_readable_units(file.get()) * unit : 0;
}

std::string file_system_of(const std::string& path) {
  int error = 0;
  const std::string target = resolve_symlink(path, error);
  std::string at = get_dirname(target);
  char* const real = realpath(at.c_str(), nullptr);
  if (real != nullptr) at = real;
  std::free(real);
  struct stat here {};
  struct stat above {};
  while (at != "/" && stat(at.c_str(), &here) == 0 && stat(get_dirname(at).c_str(), &above) == 0 &&
         here.st_dev == above.st_dev) {
    at = get_dirname(at);
  }
  return at;
}

std::uint64_t mox_phys_space(std::uint64_t payload) {
  constexpr std::uint32_t block = 4096;
  constexpr std::uint64_t header = DiskInfo::current_data_offset / block;
  const std::uint64_t blocks = payload / block + (payload % block != 0 ? 1 : 0);
  const std::uint64_t on_disk = blocks + bitmap_blocks(blocks, block) + header;
  return on_disk <= UINT64_MAX / block ? on_disk * block : UINT64_MAX;
}
