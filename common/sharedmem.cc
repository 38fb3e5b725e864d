#include "common/sharedmem.h"

#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/base/kernelfile.h"
#include "common/lockmem.h"

int intimateSharedMemory = 0;

namespace {

void clear(Status& status, SourcePosition at = SourcePosition::here()) {
  status.set(SEV_SUCCESS, MOX_NORMAL, 0, {}, at);
}

int get(int key, int size, Status& status, int flags, SourcePosition at = SourcePosition::here()) {
  const int shmid = shmget(key, static_cast<std::size_t>(size), flags);
  if (shmid < 0) {
    status.set(SEV_SYSTEMERR, MOX_SHM_GET_FAILED, errno, {key}, at);
    return -1;
  }
  clear(status, at);
  return shmid;
}

// The size of a segment in bytes, at most what a Size holds; `named` is the parameter of a failure.
template <class Size>
Size sizeOf(int shmid, int named, Status& status, SourcePosition at = SourcePosition::here()) {
  shmid_ds segment{};
  if (shmctl(shmid, IPC_STAT, &segment) != 0) {
    status.set(SEV_SYSTEMERR, MOX_SHM_CONTROL_FAILED, errno, {named}, at);
    return 0;
  }
  clear(status, at);
  constexpr std::size_t most = std::numeric_limits<Size>::max();
  return static_cast<Size>(std::min(segment.shm_segsz, most));
}

// A hole in the kernel's table, or a segment that vanished between two calls.
bool isHole(int os_error) {
  return os_error == EINVAL || os_error == EIDRM;
}

// Removes what has just been created; the status keeps the failure that is being reported. Returns
// the segment when it is still there.
Segment discard(const Segment& segment) {
  const bool gone = shmctl(segment.id, IPC_RMID, nullptr) == 0 || isHole(errno);
  return gone ? Segment() : Segment{segment.id, nullptr, Whose::OURS};
}

// Walks the kernel's table. SHM_STAT_ANY asks for no read permission on the segments.
bool keysByIndex(std::vector<int>& keys) {
  shm_info info{};
  const int highest = shmctl(0, SHM_INFO, reinterpret_cast<shmid_ds*>(&info));
  if (highest < 0) return false;
  for (int index = 0; index <= highest; ++index) {
    shmid_ds segment{};
    if (shmctl(index, SHM_STAT_ANY, &segment) >= 0) {
      keys.push_back(segment.shm_perm.__key);
    } else if (!isHole(errno)) {
      return false;
    }
  }
  // Kernels before 4.17 know no SHM_STAT_ANY and answer as if every index were a hole.
  return !keys.empty() || info.used_ids == 0;
}

// For confined processes, to whom the table itself is refused.
bool keysFromProc(std::vector<int>& keys) {
  const std::optional<std::string> table = readKernelFile("/proc/sysvipc/shm");
  if (!table || table->empty()) return false;
  std::string_view rest = *table;
  takeLine(rest);  // the names of the columns
  while (!rest.empty()) {
    std::string_view line = takeLine(rest);
    const std::optional<int> key = takeNumber<int>(line);
    if (!key) return false;
    keys.push_back(*key);
  }
  return true;
}

bool allKeys(std::vector<int>& keys) {
  if (keysByIndex(keys)) return true;
  keys.clear();
  return keysFromProc(keys);
}

}  // namespace

bool sharedKeys(int* keys, unsigned n, unsigned* count) {
  std::vector<int> found;
  if (!allKeys(found)) return false;
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
  return sizeOf<int>(shmid, shmid, status);
}

unsigned sharedSizeFromKey(int key, Status& status) {
  const int shmid = get(key, 0, status, 0);
  return status.failed() ? 0 : sizeOf<unsigned>(shmid, key, status);
}

int sharedGet(int key, int size, int expected, Status& status, int flags) {
  const int shmid = get(key, size, status, flags);
  if (status.failed()) return -1;
  const int real_size = sharedSize(shmid, status);
  if (status.failed()) {
    pushTraceStatus(&status);
    return -1;
  }
  if (expected != 0 && expected != real_size) {
    status.set(SEV_SYSTEMERR, MOX_SHM_GET_FAILED, 0, {key});
    return -1;
  }
  clear(status);
  return shmid;
}

int sharedCreate(int key, int size, Status& status) {
  const int shmid = sharedGet(key, size, 0, status, ipcCreateFlags);
  if (status.failed()) pushTraceStatus(&status);
  return shmid;
}

Segment createSegment(int key, int size, char* address, Status& status) {
  Segment segment;
  segment.id = get(key, size, status, ipcCreateFlags | IPC_EXCL);
  if (status.failed()) {
    if (status.os_error == EEXIST) segment.whose = Whose::STRANGERS;
    return segment;
  }
  segment.whose = Whose::OURS;
  segment.address = sharedAttach(segment.id, address, status, 1);
  if (status.failed()) {
    addStatusParam(&status, std::to_string(key).c_str());
    return discard(segment);
  }
  incLockMem(segment.address, static_cast<unsigned>(size), status);
  if (status.failed()) {
    static_cast<void>(shmdt(segment.address));
    return discard(segment);
  }
  clear(status);
  return segment;
}

char* sharedCreate(int key, int size, char* address, Status& status) {
  // Key 0 names no segment: each creation with it makes one more.
  const int existing = key == IPC_PRIVATE ? -1 : get(key, 0, status, 0);
  if (existing < 0 && key != IPC_PRIVATE && status.os_error != ENOENT) return nullptr;
  if (existing >= 0) sharedRemove(existing, status);
  if (existing >= 0 && status.failed()) {
    pushTraceStatus(&status);
    return nullptr;
  }
  const Segment segment = createSegment(key, size, address, status);
  if (status.failed()) {
    pushTraceStatus(&status);
    return nullptr;
  }
  return segment.address;
}

int sharedCreateIfNotExists(int key, int size, char*& address, Status& status) {
  if (status.failed()) {
    pushTraceStatus(&status);
    return -1;
  }
  const Segment segment = createSegment(key, size, nullptr, status);
  address = segment.address;
  if (segment.whose == Whose::STRANGERS) {
    status.set(SEV_SYSTEMERR, MOX_SHM_EXISTS, 0, {key});
    return shmget(key, 0, 0);
  }
  if (status.failed()) pushTraceStatus(&status);
  return segment.id;
}

char* sharedAttach(int shmid, char* address, Status& status, int writable) {
  const int flags = intimateSharedMemory | (writable != 0 ? 0 : SHM_RDONLY);
  void* const attached = shmat(shmid, address, flags);
  if (reinterpret_cast<std::intptr_t>(attached) == -1) {
    status.set(SEV_SYSTEMERR, MOX_SHM_ATTACH_FAILED, errno);
    return nullptr;
  }
  clear(status);
  return static_cast<char*>(attached);
}

int sharedDetach(char* address, Status& status) {
  if (shmdt(address) != 0) {
    status.set(SEV_SYSTEMERR, MOX_SHM_DETACH_FAILED, errno);
    return -1;
  }
  clear(status);
  return 0;
}

void sharedRemove(int shmid, Status& status) {
  if (shmctl(shmid, IPC_RMID, nullptr) != 0) {
    status.set(SEV_SYSTEMERR, MOX_SHM_REMOVE_FAILED, errno, {shmid});
    return;
  }
  clear(status);
}

void sharedRemove(int key, unsigned /*size*/, Status& status) {
  const int shmid = get(key, 0, status, 0);
  if (!status.failed()) sharedRemove(shmid, status);
}

void sharedRemoveOwned(int key, int shmid, Status& status) {
  const int present = get(key, 0, status, 0);
  if (present < 0 && status.os_error == ENOENT) return;
  if (present >= 0 && present != shmid) {
    status.set(SEV_SYSTEMERR, MOX_SHM_REMOVE_FAILED, EIDRM, {shmid});
    return;
  }
  sharedRemove(shmid, status);
}
