// The verdicts on an object, a node and a whole command, with their names in every output.
#pragma once

#include <iterator>

namespace moxnode {

enum class State { PRESENT, ABSENT, WRONG, UNKNOWN, CONFLICT, PARTIAL, MIXED };

constexpr const char* state_names[] = {"present",  "absent",  "wrong", "unknown",
                                       "conflict", "partial", "mixed"};
static_assert(std::size(state_names) == static_cast<unsigned>(State::MIXED) + 1);

constexpr const char* name_of(State state) {
  return state_names[static_cast<unsigned>(state)];
}

// The states that a node can have; the others belong to objects and to whole commands.
constexpr State node_states[] = {State::PRESENT, State::ABSENT, State::PARTIAL, State::CONFLICT,
                                 State::UNKNOWN};

}  // namespace moxnode
