// The four verbs. Each fills a report and says how the program ends; what is no report is thrown as
// Failure.
#pragma once

#include <optional>
#include <vector>

#include "kern/mox_node/description.h"
#include "kern/mox_node/exit_status.h"
#include "kern/mox_node/options.h"
#include "kern/mox_node/owner.h"
#include "kern/mox_node/report.h"

namespace moxnode {

struct Task {
  const Options& options;
  std::vector<Node> nodes;
  std::optional<Owner> owner;

  std::optional<uid_t> uid() const;
};

// Looks at what the task describes.
void look(const Task& task, Report& report);

ExitStatus status(const Task& task, Report& report);
ExitStatus plan(const Task& task, Report& report);
ExitStatus up(const Task& task, Report& report);
ExitStatus down(const Task& task, Report& report);

}  // namespace moxnode
