// What a verification says about the info header that it found.
#pragma once

#include "kern/device/diskinfo.h"

// Complaints about guard words, then the report of every field. `info` may hold whatever was read;
// what is unprintable in its name is escaped.
void report_header(const DiskInfo& info);

// End the run in an error when blocks can carry no stamps, or lie beyond offsets of 2^63.
void refuse_block_size(const DiskInfo& info);
void refuse_offsets(const DiskInfo& info);
