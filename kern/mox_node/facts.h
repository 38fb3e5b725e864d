// What this host holds: segments and semaphore sets, by key or all of them. Nothing here changes
// anything, asks for permission on an object, or attaches to one.
//
//   Host host;
//   const Look look = host.look(Kind::SEGMENT, key);
//   if (look.found == Found::THERE) ... look.object.size ...
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "kern/mox_node/sysv.h"

namespace moxnode {

enum class Found { THERE, ABSENT, UNKNOWN };

struct Look {
  Found found = Found::UNKNOWN;
  int error = 0;  // why it is unknown; 0: the kernel's answers do not fit together
  Object object;  // of what is there
};

// One time of looking. What the kernel refuses to tell of one object is looked up in its table of
// all objects, which is read once and kept; so look again with a new Host.
class Host {
 public:
  Look look(Kind kind, int key);

  // Every object that has a key, in no order. Nothing when that cannot be told; then errno says
  // why.
  static std::optional<std::vector<Object>> all(Kind kind);

 private:
  using Table = std::optional<std::vector<Object>>;

  const Table& table(Kind kind, bool read_anew);

  std::array<Table, 2> tables_;  // by Kind
};

}  // namespace moxnode
