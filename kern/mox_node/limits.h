// The kernel's limits on segments and semaphores, beside what is in use and what a plan needs.
#pragma once

#include <optional>
#include <vector>

#include "kern/mox_node/report.h"

namespace moxnode {

// What the nodes that are to be created or repaired need, against each limit. When the kernel would
// destroy segments with this process, that stands as the limit "shm_rmid_forced" of no segments.
std::vector<LimitReport> look_at_limits(const std::vector<NodeReport>& nodes);

// False: at least one is exceeded. Nothing: one cannot be told.
std::optional<bool> all_fit(const std::vector<LimitReport>& limits);

// Whether the kernel destroys unattached segments with their creator. Nothing: cannot be told.
std::optional<bool> segments_vanish();

}  // namespace moxnode
