// The hooks for real-time priority and locked memory. The runtime's own bodies do nothing: a tool
// that only creates resources has nothing to lock. A server defines those that it needs; its
// definitions take the place of the runtime's, which are weak.
#pragma once

#include "errutils/statuss.h"

void setRTpriority(unsigned char priority, Status& status);
void startLockMem(Status& status);
void incLockMem(Status& status);
// Called after a shared-memory segment of `size` bytes was attached at `address`. A failure makes
// the creation of the segment fail.
void incLockMem(const void* address, unsigned size, Status& status);
void lastLockMem(Status& status);
