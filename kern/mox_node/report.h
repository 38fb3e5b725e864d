// What a verb has to say, before it is put into text, JSON or Prometheus lines.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kern/mox_node/device_facts.h"
#include "kern/mox_node/facts.h"
#include "kern/mox_node/options.h"
#include "kern/mox_node/states.h"
#include "kern/mox_res_mgr/buffers.h"

namespace moxnode {

struct ObjectReport {
  const resmgr::buffer* buffer = nullptr;  // of a segment; null: the semaphore set
  int key = 0;
  State state = State::UNKNOWN;
  std::uint64_t wanted = 0;  // bytes or semaphores; 0: extra
  Look look;

  Kind kind() const { return buffer != nullptr ? Kind::SEGMENT : Kind::SET; }
  const char* name() const { return buffer != nullptr ? buffer->name() : "semaphores"; }
};

// What a trial CHECK would do, or meet; null: nothing, or not known.
enum class Check { NONE, CREATE, EMPTY, BUSY, TWICE };
constexpr const char* check_names[] = {nullptr, "create", "empty", "busy", "twice"};
constexpr const char* name_of(Check check) {
  return check_names[static_cast<unsigned>(check)];
}

struct DeviceReport {
  std::uint32_t number = 0;
  std::string path;
  std::int32_t megabytes = -1;  // -1: none were given
  DeviceFacts facts;
  Check check = Check::NONE;  // of plan
};

// What up does with a node.
enum class Step { NOTHING, CREATE, REPAIR, REFUSE };
constexpr const char* step_names[] = {"nothing", "create", "repair", "refuse"};
constexpr const char* name_of(Step step) {
  return step_names[static_cast<unsigned>(step)];
}

struct NodeReport {
  std::uint32_t number = 0;
  int ipcbase = 0;
  State state = State::UNKNOWN;
  std::string reason;  // of a refusal, or why it is unknown; empty: none
  Step step = Step::NOTHING;
  std::optional<std::uint64_t> attached;  // nothing: unknown
  std::vector<ObjectReport> segments;     // the wanted ones
  ObjectReport set;
  std::vector<ObjectReport> extra;  // there, or unknown
  std::vector<DeviceReport> devices;
};

// Permission bits as "0660".
std::string octal(unsigned mode);

// "node-1: databuf (key 5001)".
std::string full_name(const NodeReport& node, const ObjectReport& object);

// Calls visit(node, object) for every wanted object.
template <class Nodes, class Visit>
void for_each_wanted(Nodes& nodes, Visit visit) {
  for (auto& node : nodes) {
    for (auto& segment : node.segments) visit(node, segment);
    visit(node, node.set);
  }
}

// The wanted objects in another state, with that state, in one line.
std::string list_other_than(State state, const std::vector<NodeReport>& nodes);

struct LimitReport {
  std::string name;
  std::optional<std::uint64_t> limit;   // nothing: none below 2^53, or unknown
  std::optional<std::uint64_t> in_use;  // nothing: says nothing, or unknown
  std::uint64_t needed = 0;
  std::optional<bool> fits;  // nothing: cannot be told
};

struct SpaceReport {
  std::string path;  // of the file system
  std::uint64_t needed = 0;
  std::optional<std::uint64_t> free;
  std::optional<bool> fits;
};

struct Report {
  Verb verb = Verb::STATUS;
  State before = State::UNKNOWN;  // of the whole command, as first looked at
  State state = State::UNKNOWN;   // and now
  bool changed = false;
  std::vector<NodeReport> nodes;
  std::vector<LimitReport> limits;  // of plan, as the next
  std::vector<SpaceReport> space;
};

}  // namespace moxnode
