// What a verification says about the info header that it found.
#pragma once

#include "kern/device/diskinfo.h"

// Complaints about guard words, then the report of every field. `info` may hold whatever was read.
void report_header(const DiskInfo& info);

// Ends the run in an error when no block of such a device can be looked for: a block size that
// holds no stamp, offsets beyond 2^63.
void refuse_impossible_geometry(const DiskInfo& info);
