// Opens the device and comes back with its info header: the one just written when initialising, the
// one found there when verifying.
#pragma once

#include "kern/device/diskinfo.h"
#include "kern/devinit/directfile.h"
#include "kern/devinit/options.h"

// `region` has DiskInfo::current_header_region bytes and an alignment of as many. Every failure
// ends the run. The descriptor stands in `clean_fd`.
DirectFile create_file(const Options& options, unsigned char* region, DiskInfo& info);
