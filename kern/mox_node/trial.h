// What a CHECK of the description would do with its devices, found without opening any of them for
// writing: what it would create or empty, and whether the space is enough by that command's own
// accounting.
#pragma once

#include <vector>

#include "kern/mox_node/report.h"

namespace moxnode {

// Sets `check` of every device.
void judge_checks(std::vector<NodeReport>& reports);

// A line for each file system, in the order in which the devices name them. Nothing is needed for a
// plan that is refused.
std::vector<SpaceReport> look_at_space(const std::vector<NodeReport>& reports, bool refused);

}  // namespace moxnode
