#include "kern/devinit/directfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "kern/device/transfer.h"
#include "kern/devinit/runstate.h"

namespace {

bool is_regular_file(int fd) {
  struct stat status {};
  return fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

DirectFile::DirectFile(int fd) : fd_(fd), regular_(is_regular_file(fd)), wanted_(nodio == 0) {
#ifdef STATX_DIOALIGN
  struct statx status {};
  if (statx(fd, "", AT_EMPTY_PATH, STATX_DIOALIGN, &status) != 0 ||
      (status.stx_mask & STATX_DIOALIGN) == 0) {
    return;
  }
  wanted_ = wanted_ && status.stx_dio_offset_align != 0;
  if (wanted_) {
    memory_alignment_ = status.stx_dio_mem_align;
    offset_alignment_ = status.stx_dio_offset_align;
  }
#endif
}

ssize_t DirectFile::write(const void* buf, unsigned n, long long offset) {
  return move(buf, n, offset, [=, this] {
    unsynced_ = unsynced_ || !direct_;
    return mox_pwrite(fd_, buf, n, offset);
  });
}

ssize_t DirectFile::read(void* buf, unsigned n, long long offset) {
  return move(buf, n, offset, [=, this]() -> ssize_t {
    if (direct_ && unsynced_) {
      if (const int error = sync_data(); error != 0) {
        errno = error;
        return -1;
      }
    }
    return mox_pread(fd_, buf, n, offset);
  });
}

bool DirectFile::set_direct(const Transfer& transfer) {
  return switch_direct(is_aligned(transfer.buffer, transfer.bytes, transfer.offset)) &&
         (transfer.write || !unsynced_);
}

int DirectFile::sync_data() {
  if (fdatasync(fd_) != 0) return errno;
  unsynced_ = false;
  return 0;
}

int DirectFile::sync() {
  return fsync(fd_) != 0 ? errno : 0;
}

int DirectFile::drop_cache() {
  if (const int error = sync_data(); error != 0) return error;
  return posix_fadvise(fd_, 0, 0, POSIX_FADV_DONTNEED);
}

// A file system may refuse at the transfer only, also its rest after a partial one.
template <class Transfer>
ssize_t DirectFile::move(const void* buf, unsigned n, long long offset, Transfer transfer) {
  if (!switch_direct(is_aligned(buf, n, offset))) return transfer();
  const ssize_t moved = transfer();
  if (moved == static_cast<ssize_t>(n) || errno != EINVAL) return moved;
  switch_direct(false);
  return transfer();
}

bool DirectFile::is_aligned(const void* buf, unsigned n, long long offset) const {
  return reinterpret_cast<std::uintptr_t>(buf) % memory_alignment_ == 0 &&
         n % offset_alignment_ == 0 && offset % offset_alignment_ == 0;
}

// Returns whether transfers are direct now.
bool DirectFile::switch_direct(bool on) {
  on = on && wanted_;
  if (on == direct_) return direct_;
  const int flags = fcntl(fd_, F_GETFL);
  const int wanted_flags = on ? flags | O_DIRECT : flags & ~O_DIRECT;
  if (flags >= 0 && fcntl(fd_, F_SETFL, wanted_flags) == 0) {
    direct_ = on;
  } else {
    wanted_ = false;
  }
  return direct_;
}
