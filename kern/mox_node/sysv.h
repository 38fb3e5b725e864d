// The questions that the kernel answers about System V objects, the same for segments and for
// semaphore sets. Failures leave errno.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace moxnode {

enum class Kind { SEGMENT, SET };

struct Object {
  int key = 0;
  int id = -1;
  unsigned mode = 0;  // the nine permission bits
  uid_t uid = 0;
  gid_t gid = 0;
  std::uint64_t size = 0;       // bytes of a segment, semaphores of a set
  std::int64_t changed_at = 0;  // seconds since 1970
  // Of segments alone:
  std::uint64_t attached = 0;
  pid_t creator_pid = 0;  // 0: unknown
  pid_t last_pid = 0;     // that attached or detached; 0: none
};

// The identifier that the key names, or -1. Creates nothing and asks for no permission.
int identifier_of(Kind kind, int key);

// What stands at an index of the kernel's table; an identifier serves as its own index. Asks for no
// permission on the object. False with EINVAL or EIDRM where there is none.
bool stat_at(Kind kind, int index, Object& object);

struct TableUse {
  int highest;            // index in use
  std::uint64_t objects;  // segments or sets
  std::uint64_t amount;   // pages or semaphores
};
bool table_use(Kind kind, TableUse& use);

// The table as /proc/sysvipc shows it, for kernels and confinements that refuse the calls above.
std::optional<std::vector<Object>> proc_table(Kind kind);

}  // namespace moxnode
