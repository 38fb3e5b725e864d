// The descriptor of the device with direct I/O wherever file and transfer allow it: what the kernel
// refuses to move directly goes through the cache, and the bytes on the device are the same.
#pragma once

#include <sys/types.h>

#include "kern/devinit/asyncqueue.h"

class DirectFile {
 public:
  // Does not own the descriptor. Direct I/O is left out altogether when `nodio` is set.
  explicit DirectFile(int fd);

  // As mox_pwrite and mox_pread, n at most 2 GiB.
  ssize_t write(const void* buf, unsigned n, long long offset);
  ssize_t read(void* buf, unsigned n, long long offset);
  // Whether the transfer, begun by other means now, goes directly and sees all that was written.
  // No other transfer of this object may follow before it has ended: direct I/O is a flag of the
  // descriptor.
  bool set_direct(const Transfer& transfer);
  int fd() const { return fd_; }
  bool is_regular() const { return regular_; }
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
  bool regular_;
  bool wanted_;
  bool direct_ = false;
  bool unsynced_ = false;  // bytes went through the cache since the last sync
  unsigned memory_alignment_ = 4096;
  unsigned offset_alignment_ = 4096;
};
