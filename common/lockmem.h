// The hooks for real-time priority and locked memory. Every program of the system brings its own
// bodies: a server locks what it attaches, a tool that only creates resources has nothing to lock.
#pragma once

#include "errutils/statuss.h"

void setRTpriority(unsigned char priority, Status& status);
void startLockMem(Status& status);
void incLockMem(Status& status);
// Called after a shared-memory segment of `size` bytes was attached at `address`.
void incLockMem(const void* address, unsigned size, Status& status);
void lastLockMem(Status& status);
