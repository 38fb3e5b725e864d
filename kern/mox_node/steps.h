// What up has to do with each node, and why it refuses one.
#pragma once

#include "kern/mox_node/exit_status.h"
#include "kern/mox_node/report.h"

namespace moxnode {

// Sets `step` of every node, and `reason` of those that are refused. DONE when none is.
ExitStatus decide_steps(std::vector<NodeReport>& nodes, bool repair);

// Why down refuses the nodes, in their `reason`. DONE when it refuses none; IN_USE never with
// `force`.
ExitStatus decide_removal(std::vector<NodeReport>& nodes, bool force);

}  // namespace moxnode
