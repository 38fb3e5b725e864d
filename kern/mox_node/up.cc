#include "kern/mox_node/failure.h"
#include "kern/mox_node/limits.h"
#include "kern/mox_node/make.h"
#include "kern/mox_node/steps.h"
#include "kern/mox_node/turn.h"
#include "kern/mox_node/verbs.h"
#include "kern/mox_node/verdict.h"

namespace moxnode {

namespace {

bool has_work(const std::vector<NodeReport>& nodes) {
  for (const NodeReport& node : nodes) {
    if (node.step == Step::CREATE || node.step == Step::REPAIR) return true;
  }
  return false;
}

bool makes_segments(const std::vector<NodeReport>& nodes) {
  for (const NodeReport& node : nodes) {
    if (node.step != Step::CREATE && node.step != Step::REPAIR) continue;
    for (const ObjectReport& segment : node.segments) {
      if (segment.state == State::ABSENT) return true;
    }
  }
  return false;
}

void refuse_vanishing_segments(const std::vector<NodeReport>& nodes) {
  // Where the setting cannot be read, the look behind the creation finds them gone.
  if (makes_segments(nodes) && segments_vanish().value_or(false)) {
    throw Failure(
        "kernel.shm_rmid_forced is set: segments that nobody has attached would vanish when this "
        "program ends");
  }
}

}  // namespace

ExitStatus up(const Task& task, Report& report) {
  const Turn turn;
  look(task, report);
  const ExitStatus refusal = decide_steps(report.nodes, task.options.repair);
  if (refusal != DONE || !has_work(report.nodes)) return refusal;
  refuse_vanishing_segments(report.nodes);
  if (task.owner) refuse_foreign_owner(*task.owner);

  Maker maker(task.owner);
  maker.checkpoint();
  for (const NodeReport& node : report.nodes) {
    if (node.step != Step::NOTHING) maker.make_missing(node);
  }
  report.nodes = look_at_nodes(task.nodes, task.uid());
  report.state = state_of_all(report.nodes);
  if (report.state != State::PRESENT) {
    throw Failure("not everything stayed that was made: " +
                  list_other_than(State::PRESENT, report.nodes));
  }
  maker.checkpoint();
  maker.keep();
  report.changed = true;
  return DONE;
}

}  // namespace moxnode
