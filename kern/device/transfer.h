// Reading and writing at a position, whole or with the error that stopped it.
#pragma once

#include <sys/types.h>

// Both move n bytes at the offset and go on after a partial transfer, so that a short count has a
// reason: errno, or 0 at the end of the file. At most 100 interruptions are retried. Return the
// bytes moved, or -1 when the first attempt failed.
ssize_t mox_pwrite(int fd, const void* buf, unsigned n, long long offset);
ssize_t mox_pread(int fd, void* buf, unsigned n, long long offset);
