#include "kern/mox_node/verdict.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "kern/mox_res_mgr/ipc_res.h"

namespace moxnode {

namespace {

State judge(const ObjectReport& object, std::optional<uid_t> owner) {
  switch (object.look.found) {
    case Found::ABSENT:
      return State::ABSENT;
    case Found::UNKNOWN:
      return State::UNKNOWN;
    case Found::THERE:
      break;
  }
  const bool right_size = object.look.object.size == object.wanted;
  const bool right_owner = !owner || object.look.object.uid == *owner;
  return right_size && right_owner ? State::PRESENT : State::WRONG;
}

template <class Visit>
void for_each_wanted_of(const NodeReport& node, Visit visit) {
  for (const ObjectReport& segment : node.segments) visit(segment);
  visit(node.set);
}

bool any(const NodeReport& node, State state) {
  bool found = false;
  for_each_wanted_of(node, [&](const ObjectReport& object) { found |= object.state == state; });
  return found;
}

State state_of(const NodeReport& node) {
  if (any(node, State::UNKNOWN)) return State::UNKNOWN;
  if (any(node, State::WRONG)) return State::CONFLICT;
  if (!any(node, State::ABSENT)) return State::PRESENT;
  return any(node, State::PRESENT) ? State::PARTIAL : State::ABSENT;
}

std::optional<std::uint64_t> attaches(const NodeReport& node) {
  std::uint64_t sum = 0;
  for (const ObjectReport& segment : node.segments) {
    if (segment.state == State::UNKNOWN) return std::nullopt;
    if (segment.look.found == Found::THERE) sum += segment.look.object.attached;
  }
  return sum;
}

std::string trouble_with(const ObjectReport& object, std::optional<uid_t> owner) {
  const std::string name = std::string(object.name()) + " (key " + std::to_string(object.key) + ")";
  if (object.state == State::UNKNOWN) {
    return name + " could not be told: " +
           (object.look.error != 0 ? std::strerror(object.look.error)
                                   : "the kernel's answers contradict each other");
  }
  const Object& found = object.look.object;
  if (found.size != object.wanted) {
    return name + " has size " + std::to_string(found.size) + ", not " +
           std::to_string(object.wanted);
  }
  return name + " belongs to user " + std::to_string(found.uid) + ", not " + std::to_string(*owner);
}

// What makes the node unknown or a conflict.
std::string troubles(const NodeReport& node, std::optional<uid_t> owner) {
  std::string text;
  const State bad = node.state == State::UNKNOWN ? State::UNKNOWN : State::WRONG;
  for_each_wanted_of(node, [&](const ObjectReport& object) {
    if (object.state != bad) return;
    if (!text.empty()) text += "; ";
    text += trouble_with(object, owner);
  });
  return text;
}

std::size_t wanted_segments(const resmgr::ipc_res& ipc) {
  return ipc.size.size() - static_cast<std::size_t>(std::ranges::count(ipc.size, 0U));
}

NodeReport look_at_node(const Node& wanted, std::optional<uid_t> owner, Host& host) {
  NodeReport node;
  node.number = wanted.number;
  node.ipcbase = wanted.ipc.ipcbase;
  node.segments.reserve(wanted_segments(wanted.ipc));
  for (const resmgr::buffer& buffer : resmgr::buffers) {
    const int key = wanted.ipc.key(buffer.offset);
    const ObjectReport object{&buffer, key, State::UNKNOWN, wanted.ipc.size[buffer.offset],
                              host.look(Kind::SEGMENT, key)};
    if (object.wanted != 0) {
      node.segments.push_back(object);
    } else if (object.look.found != Found::ABSENT) {
      node.extra.push_back(object);
    }
  }
  const int set_key = wanted.ipc.key(resmgr::semaphores_offset);
  node.set = {nullptr, set_key, State::UNKNOWN, resmgr::semaphores_per_node,
              host.look(Kind::SET, set_key)};
  for (const Device& device : wanted.devices) {
    node.devices.push_back(
        {device.number, device.path, device.megabytes, look_at_device(device.path)});
  }
  judge_node(node, owner);
  return node;
}

}  // namespace

void judge_node(NodeReport& node, std::optional<uid_t> owner) {
  for (ObjectReport& segment : node.segments) segment.state = judge(segment, owner);
  node.set.state = judge(node.set, owner);
  node.state = state_of(node);
  node.attached = attaches(node);
  node.reason = troubles(node, owner);
}

std::vector<NodeReport> look_at_nodes(const std::vector<Node>& nodes, std::optional<uid_t> owner) {
  Host host;
  std::vector<NodeReport> reports;
  reports.reserve(nodes.size());
  for (const Node& node : nodes) reports.push_back(look_at_node(node, owner, host));
  return reports;
}

State state_of_all(const std::vector<NodeReport>& nodes) {
  const auto is = [](State state) {
    return [state](const NodeReport& node) { return node.state == state; };
  };
  for (const State first : {State::UNKNOWN, State::CONFLICT, State::PARTIAL}) {
    if (std::any_of(nodes.begin(), nodes.end(), is(first))) return first;
  }
  if (std::all_of(nodes.begin(), nodes.end(), is(State::ABSENT))) return State::ABSENT;
  if (std::all_of(nodes.begin(), nodes.end(), is(State::PRESENT))) return State::PRESENT;
  return State::MIXED;
}

}  // namespace moxnode
