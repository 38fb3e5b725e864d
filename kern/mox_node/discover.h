// Finds nodes without a description, by the shape that every node has: a dictionary buffer of its
// size, and the semaphore set on the key behind it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

#include "kern/mox_node/report.h"

namespace moxnode {

// In the order of keys; nodes are numbered from 1, and every buffer that is there counts as wanted.
// With an owner, that user's objects alone; buffers of others are extra. Throws Failure when the
// objects of the host cannot be listed.
std::vector<NodeReport> find_nodes(std::optional<uid_t> owner);

}  // namespace moxnode
