#include "kern/mox_node/steps.h"

#include <string>

namespace moxnode {

namespace {

std::string in_use(const NodeReport& node) {
  return "in use: its segments are attached " + std::to_string(node.attached.value_or(0)) +
         " times";
}

ExitStatus refuse(NodeReport& node, ExitStatus status, const std::string& reason = "") {
  node.step = Step::REFUSE;
  if (!reason.empty()) node.reason = reason;
  return status;
}

ExitStatus decide(NodeReport& node, bool repair) {
  switch (node.state) {
    case State::PRESENT:
      node.step = Step::NOTHING;
      return DONE;
    case State::ABSENT:
      node.step = Step::CREATE;
      return DONE;
    case State::PARTIAL:
      break;
    case State::CONFLICT:
      return refuse(node, CONFLICT);
    default:
      return refuse(node, TROUBLE);
  }
  if (!repair) {
    return refuse(node, PARTIAL,
                  "some of its objects are missing, and somebody may use the others; --repair "
                  "makes what is missing");
  }
  if (node.attached.value_or(0) > 0) return refuse(node, IN_USE, in_use(node));
  node.step = Step::REPAIR;
  return DONE;
}

}  // namespace

ExitStatus decide_steps(std::vector<NodeReport>& nodes, bool repair) {
  ExitStatus status = DONE;
  for (NodeReport& node : nodes) status = first_of({status, decide(node, repair)});
  return status;
}

ExitStatus decide_removal(std::vector<NodeReport>& nodes, bool force) {
  ExitStatus status = DONE;
  for (NodeReport& node : nodes) {
    if (node.state == State::UNKNOWN) {
      status = first_of({status, TROUBLE});
    } else if (node.state == State::CONFLICT) {
      status = first_of({status, CONFLICT});
    } else if (!force && node.attached.value_or(0) > 0) {
      status = first_of({status, refuse(node, IN_USE, in_use(node))});
    }
  }
  return status;
}

}  // namespace moxnode
