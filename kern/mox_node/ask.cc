#include "kern/mox_node/discover.h"
#include "kern/mox_node/limits.h"
#include "kern/mox_node/steps.h"
#include "kern/mox_node/trial.h"
#include "kern/mox_node/verbs.h"
#include "kern/mox_node/verdict.h"

namespace moxnode {

namespace {

ExitStatus status_of(State state) {
  switch (state) {
    case State::PRESENT:
      return DONE;
    case State::ABSENT:
    case State::MIXED:
      return ABSENT;
    case State::PARTIAL:
      return PARTIAL;
    case State::CONFLICT:
      return CONFLICT;
    default:
      return TROUBLE;
  }
}

ExitStatus fit_of(const std::vector<LimitReport>& limits) {
  const std::optional<bool> fit = all_fit(limits);
  if (!fit) return TROUBLE;
  return *fit ? DONE : TOO_MUCH;
}

}  // namespace

std::optional<uid_t> Task::uid() const {
  if (!owner) return std::nullopt;
  return owner->uid;
}

void look(const Task& task, Report& report) {
  report.nodes = look_at_nodes(task.nodes, task.uid());
  report.before = report.state = state_of_all(report.nodes);
}

ExitStatus status(const Task& task, Report& report) {
  if (task.options.all) {
    report.nodes = find_nodes(task.uid());
    report.before = report.state = state_of_all(report.nodes);
  } else {
    look(task, report);
  }
  const bool complete_is_enough = task.options.format == Format::PROMETHEUS;
  return complete_is_enough ? DONE : status_of(report.state);
}

ExitStatus plan(const Task& task, Report& report) {
  look(task, report);
  judge_checks(report.nodes);
  const ExitStatus refusal = decide_steps(report.nodes, task.options.repair);
  // Nothing is needed for what is refused as a whole.
  const bool refused = refusal != DONE;
  report.limits = look_at_limits(refused ? std::vector<NodeReport>() : report.nodes);
  report.space = look_at_space(report.nodes, refused);
  return first_of({refusal, fit_of(report.limits)});
}

}  // namespace moxnode
