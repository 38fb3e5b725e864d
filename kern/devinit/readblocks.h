// Reads every data block back: to compare it with what was just written, or to judge its stamp.
#pragma once

#include "kern/device/diskinfo.h"
#include "kern/devinit/directfile.h"
#include "kern/devinit/memory.h"

// Ends the run in an error at the first difference from the pattern.
void compare_data_blocks(DirectFile& file, const IoBuffers& buffers, const DiskInfo& info);

// Prints progress, blocks and counts as `readVerify` asks for. `bitmap` has a bit for each data
// block; null for a log device.
void verify_data_blocks(DirectFile& file, const IoBuffers& buffers, const DiskInfo& info,
                        const unsigned char* bitmap);
