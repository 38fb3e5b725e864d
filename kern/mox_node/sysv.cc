#include "kern/mox_node/sysv.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <array>
#include <cerrno>
#include <string>
#include <string_view>

#include "common/base/kernelfile.h"

namespace moxnode {

namespace {

constexpr unsigned permission_bits = 0777;

// The layout that semctl expects; no header declares it.
union semun {
  int val;
  semid_ds* buf;
  unsigned short* array;
  seminfo* info;
};

Object object_of(const ipc_perm& perm, int id) {
  Object object;
  object.key = perm.__key;
  object.id = id;
  object.mode = perm.mode & permission_bits;
  object.uid = perm.uid;
  object.gid = perm.gid;
  return object;
}

bool stat_segment(int index, Object& object) {
  shmid_ds segment{};
  const int id = shmctl(index, SHM_STAT_ANY, &segment);
  if (id < 0) return false;
  object = object_of(segment.shm_perm, id);
  object.size = segment.shm_segsz;
  object.changed_at = segment.shm_ctime;
  object.attached = segment.shm_nattch;
  object.creator_pid = segment.shm_cpid;
  object.last_pid = segment.shm_lpid;
  return true;
}

bool stat_set(int index, Object& object) {
  semid_ds set{};
  semun into{};
  into.buf = &set;
  const int id = semctl(index, 0, SEM_STAT_ANY, into);
  if (id < 0) return false;
  object = object_of(set.sem_perm, id);
  object.size = set.sem_nsems;
  object.changed_at = set.sem_ctime;
  return true;
}

// The places of the columns in the lines of /proc/sysvipc; -1: the table has no such column.
struct Columns {
  const char* path;
  int count, size, uid, gid, changed_at, attached, creator_pid, last_pid;
};
constexpr Columns columns[] = {
    {"/proc/sysvipc/shm", 14, 3, 7, 8, 13, 6, 4, 5},
    {"/proc/sysvipc/sem", 10, 3, 4, 5, 9, -1, -1, -1},
};
constexpr int key_column = 0, id_column = 1;
constexpr int mode_column = 2;  // octal; all the others are decimal
constexpr int most_columns = 14;

using Row = std::array<long long, most_columns>;

// False when the line holds fewer numbers than the table has columns.
bool read_row(std::string_view line, int count, Row& row) {
  for (int i = 0; i < count; ++i) {
    const auto number = takeNumber<long long>(line, i == mode_column ? 8 : 10);
    if (!number) return false;
    row[static_cast<std::size_t>(i)] = *number;
  }
  return true;
}

Object object_of(const Row& row, const Columns& at) {
  const auto cell = [&row](int column) {
    return column < 0 ? 0 : row[static_cast<std::size_t>(column)];
  };
  Object object;
  object.key = static_cast<int>(cell(key_column));
  object.id = static_cast<int>(cell(id_column));
  object.mode = static_cast<unsigned>(cell(mode_column)) & permission_bits;
  object.size = static_cast<std::uint64_t>(cell(at.size));
  object.uid = static_cast<uid_t>(cell(at.uid));
  object.gid = static_cast<gid_t>(cell(at.gid));
  object.changed_at = cell(at.changed_at);
  object.attached = static_cast<std::uint64_t>(cell(at.attached));
  object.creator_pid = static_cast<pid_t>(cell(at.creator_pid));
  object.last_pid = static_cast<pid_t>(cell(at.last_pid));
  return object;
}

}  // namespace

int identifier_of(Kind kind, int key) {
  return kind == Kind::SEGMENT ? shmget(key, 0, 0) : semget(key, 0, 0);
}

bool stat_at(Kind kind, int index, Object& object) {
  return kind == Kind::SEGMENT ? stat_segment(index, object) : stat_set(index, object);
}

bool table_use(Kind kind, TableUse& use) {
  if (kind == Kind::SEGMENT) {
    shm_info info{};
    use.highest = shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&info));
    use.objects = static_cast<std::uint64_t>(info.used_ids);
    use.amount = info.shm_tot;
  } else {
    // SEM_INFO counts the sets and the semaphores in use where IPC_INFO tells other limits.
    seminfo info{};
    semun into{};
    into.info = &info;
    use.highest = semctl(0, 0, SEM_INFO, into);
    use.objects = static_cast<std::uint64_t>(info.semusz);
    use.amount = static_cast<std::uint64_t>(info.semaem);
  }
  return use.highest >= 0;
}

std::optional<std::vector<Object>> proc_table(Kind kind) {
  const Columns& at = columns[static_cast<unsigned>(kind)];
  const std::optional<std::string> text = readKernelFile(at.path);
  if (!text) return std::nullopt;
  if (!text->ends_with('\n')) {
    errno = text->empty() ? ENODATA : EBADMSG;
    return std::nullopt;
  }
  std::vector<Object> objects;
  std::string_view rest = *text;
  takeLine(rest);  // the names of the columns
  while (!rest.empty()) {
    Row row{};
    if (!read_row(takeLine(rest), at.count, row)) {
      errno = EBADMSG;
      return std::nullopt;
    }
    objects.push_back(object_of(row, at));
  }
  return objects;
}

}  // namespace moxnode
