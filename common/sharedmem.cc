#include "common/sharedmem.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "common/lockmem.h"

int intimateSharedMemory = 0;

#define CLEARED(status) STATUS_SET((status), SEV_SUCCESS, MOX_NORMAL, 0)
#define FAILED(status, number, os_error) STATUS_SET((status), SEV_SYSTEMERR, (number), (os_error))

namespace {

void add_number(Status& status, int number) {
  char text[64];
  std::snprintf(text, sizeof text, "%d", number);
  addStatusParam(&status, text);
}

int get(int key, int size, Status& status, int flags) {
  const int shmid = shmget(key, static_cast<std::size_t>(size), flags);
  if (shmid < 0) {
    FAILED(status, MOX_SHM_GET_FAILED, errno);
    add_number(status, key);
    return -1;
  }
  CLEARED(status);
  return shmid;
}

// A hole in the kernel's table, or a segment that vanished between two calls.
bool is_hole(int os_error) {
  return os_error == EINVAL || os_error == EIDRM;
}

// Removes what the caller has just created itself, keeping the failure that is being reported. -1,
// or the identifier of a segment that is still there.
int discard(int shmid) {
  const bool gone = shmctl(shmid, IPC_RMID, nullptr) == 0 || is_hole(errno);
  return gone ? -1 : shmid;
}

// Walks the kernel's table. SHM_STAT_ANY asks for no read permission on the segments.
bool keys_by_index(std::vector<int>& keys) {
  shm_info info{};
  const int highest = shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&info));
  if (highest < 0) return false;
  for (int index = 0; index <= highest; ++index) {
    shmid_ds segment{};
    if (shmctl(index, SHM_STAT_ANY, &segment) >= 0) {
      keys.push_back(segment.shm_perm.__key);
    } else if (!is_hole(errno)) {
      return false;
    }
  }
  // Kernels before 4.17 know no SHM_STAT_ANY and answer as if every index were a hole.
  return !keys.empty() || info.used_ids == 0;
}

// For confined processes, to whom the table itself is refused.
bool keys_from_proc(std::vector<int>& keys) {
  std::ifstream table("/proc/sysvipc/shm");
  std::string line;
  if (!std::getline(table, line)) return false;
  while (std::getline(table, line)) {
    int key = 0;
    if (!(std::istringstream(line) >> key)) return false;
    keys.push_back(key);
  }
  return table.eof();
}

bool all_keys(std::vector<int>& keys) {
  if (keys_by_index(keys)) return true;
  keys.clear();
  return keys_from_proc(keys);
}

}  // namespace

bool sharedKeys(int* keys, unsigned n, unsigned* count) {
  std::vector<int> found;
  if (!all_keys(found)) return false;
  *count = static_cast<unsigned>(found.size());
  if (keys == nullptr || n == 0) return true;
  if (n < found.size()) {
    errno = ENOSPC;
    return false;
  }
  std::copy(found.begin(), found.end(), keys);
  return true;
}

int sharedSize(int shmid, Status& status) {
  shmid_ds segment{};
  if (shmctl(shmid, IPC_STAT, &segment) != 0) {
    FAILED(status, MOX_SHM_CONTROL_FAILED, errno);
    add_number(status, shmid);
    return 0;
  }
  CLEARED(status);
  return static_cast<int>(
      std::min(segment.shm_segsz, static_cast<std::size_t>(std::numeric_limits<int>::max())));
}

unsigned sharedSizeFromKey(int key, Status& status) {
  const int shmid = get(key, 0, status, 0);
  if (status.failed()) return 0;
  shmid_ds segment{};
  if (shmctl(shmid, IPC_STAT, &segment) != 0) {
    FAILED(status, MOX_SHM_CONTROL_FAILED, errno);
    add_number(status, key);
    return 0;
  }
  CLEARED(status);
  return static_cast<unsigned>(segment.shm_segsz);
}

int sharedGet(int key, int size, int expected, Status& status, int flags) {
  const int shmid = get(key, size, status, flags);
  if (status.failed()) return -1;
  const int real_size = sharedSize(shmid, status);
  if (status.failed()) {
    STATUS_TRACE(status);
    return -1;
  }
  if (expected != 0 && expected != real_size) {
    FAILED(status, MOX_SHM_GET_FAILED, 0);
    add_number(status, key);
    return -1;
  }
  CLEARED(status);
  return shmid;
}

int sharedCreate(int key, int size, Status& status) {
  const int shmid = sharedGet(key, size, 0, status, ipcCreateFlags);
  if (status.failed()) STATUS_TRACE(status);
  return shmid;
}

namespace {

// Creates a segment that is ours alone, attaches it and hands its memory to the locking hook.
// Returns its identifier; after a failure -1, or the identifier of a segment that could not be
// removed again.
int create_and_attach(int key, int size, char*& address, Status& status) {
  const int shmid = get(key, size, status, ipcCreateFlags | IPC_EXCL);
  if (status.failed()) return -1;
  address = sharedAttach(shmid, address, status, 1);
  if (status.failed()) {
    add_number(status, key);
    return discard(shmid);
  }
  incLockMem(address, static_cast<unsigned>(size), status);
  if (status.failed()) {
    static_cast<void>(shmdt(address));
    return discard(shmid);
  }
  CLEARED(status);
  return shmid;
}

}  // namespace

char* sharedCreate(int key, int size, char* address, Status& status) {
  const int existing = get(key, 0, status, 0);
  if (existing < 0 && status.os_error != ENOENT) return nullptr;
  if (existing >= 0) {
    sharedRemove(existing, status);
    if (status.failed()) {
      STATUS_TRACE(status);
      return nullptr;
    }
  }
  create_and_attach(key, size, address, status);
  if (status.failed()) {
    STATUS_TRACE(status);
    return nullptr;
  }
  return address;
}

int sharedCreateIfNotExists(int key, int size, char*& address, Status& status) {
  if (status.failed()) {
    STATUS_TRACE(status);
    return -1;
  }
  address = nullptr;
  const int shmid = create_and_attach(key, size, address, status);
  if (status.number == MOX_SHM_GET_FAILED && status.os_error == EEXIST) {
    FAILED(status, MOX_SHM_EXISTS, 0);
    add_number(status, key);
    return shmget(key, 0, 0);
  }
  if (status.failed()) STATUS_TRACE(status);
  return shmid;
}

char* sharedAttach(int shmid, char* address, Status& status, int writable) {
  const int flags = intimateSharedMemory | (writable != 0 ? 0 : SHM_RDONLY);
  void* const attached = shmat(shmid, address, flags);
  if (reinterpret_cast<std::intptr_t>(attached) == -1) {
    FAILED(status, MOX_SHM_ATTACH_FAILED, errno);
    return nullptr;
  }
  CLEARED(status);
  return static_cast<char*>(attached);
}

int sharedDetach(char* address, Status& status) {
  if (shmdt(address) != 0) {
    FAILED(status, MOX_SHM_DETACH_FAILED, errno);
    return -1;
  }
  CLEARED(status);
  return 0;
}

void sharedRemove(int shmid, Status& status) {
  if (shmctl(shmid, IPC_RMID, nullptr) != 0) {
    FAILED(status, MOX_SHM_REMOVE_FAILED, errno);
    add_number(status, shmid);
    return;
  }
  CLEARED(status);
}

void sharedRemove(int key, unsigned /*size*/, Status& status) {
  const int shmid = get(key, 0, status, 0);
  if (!status.failed()) sharedRemove(shmid, status);
}

void sharedRemoveOwned(int key, int shmid, Status& status) {
  const int present = get(key, 0, status, 0);
  if (present < 0 && status.os_error == ENOENT) return;
  if (present >= 0 && present != shmid) {
    FAILED(status, MOX_SHM_REMOVE_FAILED, EIDRM);
    add_number(status, shmid);
    return;
  }
  sharedRemove(shmid, status);
}
