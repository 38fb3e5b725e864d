#include "utl/semops.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

constexpr int permissions = 0660;

// The layout that semctl expects; no header declares it.
union semun {
  int val;
  semid_ds* buf;
  unsigned short* array;
};

struct MappedSet {
  int semid = -1;
  int key = -1;
  int count = 0;
  MutexRecord* table = nullptr;
};

MappedSet mapped;

int clear(Status* status, SourcePosition at = SourcePosition::here()) {
  status->set(SEV_SUCCESS, MOX_NORMAL, 0, {}, at);
  return 0;
}

int fail(Status* status, Moxstatus_e number, int os_error, int key,
         SourcePosition at = SourcePosition::here()) {
  status->set(SEV_ERROR, number, os_error, {key}, at);
  return -1;
}

void map(int semid, int key, int count) {
  mapped.semid = semid;
  mapped.key = key;
  mapped.count = count;
}

// How many semaphores the set has: perhaps more than its user asked for, and GETALL and SETALL move
// a value for each. 0 with errno when the kernel does not say.
std::size_t sizeOfSet(int semid) {
  semid_ds set{};
  semun into{};
  into.buf = &set;
  return semctl(semid, 0, IPC_STAT, into) == 0 ? set.sem_nsems : 0;
}

// The values of a new set. A semaphore's number has 16 bits: the kernel makes no larger set.
std::vector<unsigned short> ones(std::int64_t count) {
  constexpr std::int64_t most = 65536;
  return std::vector<unsigned short>(
      static_cast<std::size_t>(std::clamp<std::int64_t>(count, 0, most)), 1);
}

bool setAll(int semid, std::vector<unsigned short>& values) {
  semun from{};
  from.array = values.data();
  return !values.empty() && semctl(semid, 0, SETALL, from) == 0;
}

// SEM_UNDO: the kernel gives a mutex back when its holder dies.
int changeBy(Status* status, const MutexRecord& mutex, short amount) {
  sembuf operation{static_cast<unsigned short>(mutex.number), amount, SEM_UNDO};
  if (semop(mapped.semid, &operation, 1) != 0) {
    return fail(status, MOX_SEM_OPERATION_FAILED, errno, mapped.key);
  }
  return clear(status);
}

}  // namespace

int utlCreateMutex(Status* status, MutexHandle* /*handle*/, int key, int count) {
  map(semget(key, count, IPC_CREAT | permissions), key, count);
  if (mapped.semid < 0) return fail(status, MOX_SEM_CREATE_FAILED, errno, key);
  const std::size_t size = sizeOfSet(mapped.semid);
  std::vector<unsigned short> values = ones(static_cast<std::int64_t>(size));
  if (!setAll(mapped.semid, values)) return fail(status, MOX_SEM_OPERATION_FAILED, errno, key);
  return clear(status);
}

Whose utlCreateOwnMutex(Status* status, MutexHandle* /*handle*/, int key, int count) {
  std::vector<unsigned short> values = ones(count);  // before there is a set that a failure leaves
  map(semget(key, count, IPC_CREAT | IPC_EXCL | permissions), key, count);
  if (mapped.semid < 0) {
    const int os_error = errno;
    fail(status, MOX_SEM_CREATE_FAILED, os_error, key);
    return os_error == EEXIST ? Whose::STRANGERS : Whose::NOBODYS;
  }
  if (setAll(mapped.semid, values)) {
    clear(status);
    return Whose::OURS;
  }
  fail(status, MOX_SEM_OPERATION_FAILED, errno, key);
  if (semctl(mapped.semid, 0, IPC_RMID) != 0) return Whose::OURS;
  utlUnmapMutex();
  return Whose::NOBODYS;
}

int utlMapMutex(Status* status, MutexHandle* /*handle*/, int key, int count) {
  map(semget(key, count, permissions), key, count);
  if (mapped.semid < 0) return fail(status, MOX_SEM_CREATE_FAILED, errno, key);
  return clear(status);
}

void utlMapKnownMutex(int semid, int key, int count) {
  map(semid, key, count);
}

int utlMappedMutex() {
  return mapped.semid;
}

void utlUnmapMutex() {
  mapped = MappedSet();
}

int utlRemoveMutex(Status* status) {
  if (semctl(mapped.semid, mapped.count, IPC_RMID) != 0) {
    return fail(status, MOX_SEM_REMOVE_FAILED, errno, mapped.key);
  }
  utlUnmapMutex();
  return clear(status);
}

void utlInitMutex(MutexHandle* handle, MutexRecord* table) {
  for (int i = 0; i < mapped.count; ++i) table[i] = {i, 0, 0, i};
  utlBindMutex(handle, table);
}

void utlBindMutex(MutexHandle* /*handle*/, MutexRecord* table) {
  mapped.table = table;
}

void utlClearMutex(MutexHandle* /*handle*/, pid_t pid) {
  if (mapped.table == nullptr) return;
  for (int i = 0; i < mapped.count; ++i) {
    if (mapped.table[i].who == pid) mapped.table[i].who = 0;
  }
}

int uwtsem(Status* status, MutexRecord* mutex) {
  if (mapped.semid < 0) return clear(status);
  if (changeBy(status, *mutex, -1) != 0) return -1;
  mutex->who = getpid();
  ++mutex->hold_count;
  return 0;
}

int urlsem(Status* status, MutexRecord* mutex) {
  if (mapped.semid < 0 || mutex->who == 0) return clear(status);
  const pid_t self = getpid();
  if (mutex->who != self) {
    std::printf("pid %d mutex %d: mutex->who was %d\n", self, mutex->number, mutex->who);
    status->abort("urlsem: Mutex reserved by another process");
  }
  mutex->who = 0;
  return changeBy(status, *mutex, 1);
}

int ucksem(Status* status, int* state, int* index) {
  std::vector<unsigned short> values(sizeOfSet(mapped.semid));
  semun into{};
  into.array = values.data();
  if (values.empty() || semctl(mapped.semid, 0, GETALL, into) != 0) {
    return fail(status, MOX_SEM_OPERATION_FAILED, errno, mapped.key);
  }
  *state = 0;
  *index = -1;
  for (int i = 0; i < mapped.count; ++i) {
    const unsigned value = values[static_cast<std::size_t>(i)];
    const bool owned = mapped.table != nullptr && mapped.table[i].who != 0;
    if (value > 1 || (value == 1 && owned)) {
      *state = value > 1 ? 1 : 2;
      *index = i;
      break;
    }
  }
  return clear(status);
}
