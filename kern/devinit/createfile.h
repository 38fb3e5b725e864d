// Opens the device and comes back with its info header: the one just written when initialising, the
// one found there when verifying.
#pragma once

#include "kern/devinit/directfile.h"
#include "kern/devinit/options.h"
#include "kern/diskinfo.h"

constexpr unsigned header_region_size =
    DiskInfo::current_data_offset - DiskInfo::current_header_offset;

// `region` has header_region_size bytes and an alignment of as many. Every failure ends the run.
// The descriptor stands in `clean_fd`.
DirectFile create_file(const Options& options, unsigned char* region, DiskInfo& info);
