// The descriptor of the device with direct I/O wherever file and transfer allow it: what the kernel
// refuses to move directly goes through the cache, and the bytes on the device are the same.
#pragma once

#include <sys/types.h>

class DirectFile {
 public:
  // Does not own the descriptor. Direct I/O is left out altogether when `nodio` is set.
  explicit DirectFile(int fd);

  // As mox_pwrite and mox_pread, n at most 2 GiB.
  ssize_t write(const void* buf, unsigned n, long long offset);
  ssize_t read(void* buf, unsigned n, long long offset);
  // Return 0 or the errno.
  int sync_data();
  int sync();
  // From now on reads come from the device, also where direct I/O is left out: writes the cache
  // back and drops it.
  int drop_cache();

 private:
  template <class Transfer>
  ssize_t move(const void* buf, unsigned n, long long offset, Transfer transfer);
  bool is_aligned(const void* buf, unsigned n, long long offset) const;
  bool switch_direct(bool on);

  int fd_;
  bool wanted_;
  bool direct_ = false;
  bool unsynced_ = false;  // bytes went through the cache since the last sync
  unsigned memory_alignment_ = 4096;
  unsigned offset_alignment_ = 4096;
};
