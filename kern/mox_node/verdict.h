// What the host holds against what is wanted.
#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

#include "kern/mox_node/description.h"
#include "kern/mox_node/report.h"

namespace moxnode {

// Looks at every object and device of the nodes and judges them. With an owner, objects that belong
// to another user are wrong.
std::vector<NodeReport> look_at_nodes(const std::vector<Node>& nodes, std::optional<uid_t> owner);

// The state and the sum of attaches, from the states of the objects.
void judge_node(NodeReport& node, std::optional<uid_t> owner);

State state_of_all(const std::vector<NodeReport>& nodes);

}  // namespace moxnode
