#include "kern/mox_node/facts.h"

#include <sys/ipc.h>

#include <algorithm>
#include <cerrno>

namespace moxnode {

namespace {

// A hole in the kernel's table, or an object that vanished between two calls.
bool is_hole(int os_error) {
  return os_error == EINVAL || os_error == EIDRM;
}

std::optional<std::vector<Object>> table_by_index(Kind kind) {
  TableUse use{};
  if (!table_use(kind, use)) return std::nullopt;
  std::vector<Object> objects;
  objects.reserve(use.objects);
  for (int index = 0; index <= use.highest; ++index) {
    Object object;
    if (stat_at(kind, index, object)) {
      objects.push_back(object);
    } else if (!is_hole(errno)) {
      return std::nullopt;
    }
  }
  // Kernels before 4.17 answer as if every index were a hole.
  if (objects.empty() && use.objects > 0) return std::nullopt;
  return objects;
}

}  // namespace

std::optional<std::vector<Object>> Host::all(Kind kind) {
  auto objects = table_by_index(kind);
  if (!objects) objects = proc_table(kind);
  // Private objects, and removed ones that are still attached, have no key.
  if (objects) {
    std::erase_if(*objects, [](const Object& object) { return object.key == IPC_PRIVATE; });
  }
  return objects;
}

const Host::Table& Host::table(Kind kind, bool read_anew) {
  Table& table = tables_[static_cast<unsigned>(kind)];
  if (!table || read_anew) table = proc_table(kind);
  return table;
}

// The identifier that the look-up by key gave decides. An object that is removed or changes hands
// between two questions is looked at once more.
Look Host::look(Kind kind, int key) {
  Look look;
  for (const bool again : {false, true}) {
    const int id = identifier_of(kind, key);
    if (id < 0 && errno == ENOENT) return {Found::ABSENT, 0, {}};
    if (id < 0 || !stat_at(kind, id, look.object)) {
      look.error = is_hole(errno) ? 0 : errno;
    } else if (look.object.id == id && look.object.key == key) {
      look.found = Found::THERE;
      return look;
    }
    const Table& all = table(kind, again);
    if (!all) continue;
    const auto row = std::ranges::find_if(*all, [&](const Object& object) {
      return object.key == key && (id < 0 || object.id == id);
    });
    if (row != all->end()) return {Found::THERE, 0, *row};
    // Who may not ask by key finds everything in the table; but EACCES says that the object exists.
    if (id < 0 && look.error != EACCES) return {Found::ABSENT, 0, {}};
  }
  return look;
}

}  // namespace moxnode
