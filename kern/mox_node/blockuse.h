// Whether a block device is in use, by the tables of the system; the device is not opened.
#pragma once

#include <sys/types.h>

namespace moxnode {

// True when the device or one of its partitions is mounted, is swap, or is part of another device.
bool is_held(dev_t device);

}  // namespace moxnode
