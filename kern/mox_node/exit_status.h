// How the program ends.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace moxnode {

enum ExitStatus {
  DONE = 0,  // present (down: absent), or nothing stands in the way
  TROUBLE = 1,
  ABSENT = 2,  // up has work and can do it
  PARTIAL = 3,
  CONFLICT = 4,
  IN_USE = 5,
  TOO_MUCH = 6,  // for the kernel's limits
};

// The one that counts of several.
inline ExitStatus first_of(std::initializer_list<ExitStatus> several) {
  constexpr ExitStatus order[] = {TROUBLE, CONFLICT, IN_USE, PARTIAL, TOO_MUCH, ABSENT, DONE};
  const auto* const first =
      std::find_first_of(std::begin(order), std::end(order), several.begin(), several.end());
  return *first;
}

}  // namespace moxnode
