// The report as lines for a reader: the same on every host that is in the same state, unless
// verbose.
#pragma once

#include <string>

#include "kern/mox_node/lines.h"
#include "kern/mox_node/report.h"

namespace moxnode {

struct TextStyle {
  bool verbose = false;  // also identifiers, owners, processes, times
  bool coloured = false;
};

Lines to_text(const Report& report, TextStyle style);

// For each node a command that creates it, in the order given. What the command language cannot
// say is left out of the line and told in `warnings`.
Lines to_commands(const Report& report, std::vector<std::string>& warnings);

}  // namespace moxnode
