#include "utl/semops.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

#include <cerrno>
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

int cleared(Status* status) {
  STATUS_SET(*status, SEV_SUCCESS, MOX_NORMAL, 0);
  return 0;
}

int failed(Status* status, Moxstatus_e number, int os_error, int key, int line) {
  status->set(SEV_ERROR, number, os_error, __FILE__, line);
  char text[16];
  std::snprintf(text, sizeof text, "%d", key);
  addStatusParam(status, text);
  return -1;
}

// SEM_UNDO: the kernel gives a mutex back when its holder dies.
int change_by(Status* status, const MutexRecord& mutex, short amount) {
  sembuf operation{static_cast<unsigned short>(mutex.number), amount, SEM_UNDO};
  if (semop(mapped.semid, &operation, 1) != 0) {
    return failed(status, MOX_SEM_OPERATION_FAILED, errno, mapped.key, __LINE__);
  }
  return cleared(status);
}

}  // namespace

int utlCreateMutex(Status* status, MutexHandle* /*handle*/, int key, int count) {
  std::vector<unsigned short> ones(static_cast<std::size_t>(count), 1);
  const int semid = semget(key, count, IPC_CREAT | IPC_EXCL | permissions);
  if (semid < 0) return failed(status, MOX_SEM_CREATE_FAILED, errno, key, __LINE__);
  semun values{};
  values.array = ones.data();
  if (semctl(semid, 0, SETALL, values) != 0) {
    const int os_error = errno;
    if (semctl(semid, 0, IPC_RMID) != 0) mapped = {semid, key, count, nullptr};
    return failed(status, MOX_SEM_OPERATION_FAILED, os_error, key, __LINE__);
  }
  mapped = {semid, key, count, nullptr};
  return cleared(status);
}

int utlMapMutex(Status* status, MutexHandle* /*handle*/, int key, int count) {
  mapped = {semget(key, count, permissions), key, count, nullptr};
  if (mapped.semid < 0) return failed(status, MOX_SEM_CREATE_FAILED, errno, key, __LINE__);
  return cleared(status);
}

void utlMapKnownMutex(int semid, int key, int count) {
  mapped = {semid, key, count, nullptr};
}

int utlMappedMutex() {
  return mapped.semid;
}

void utlUnmapMutex() {
  mapped = MappedSet();
}

int utlRemoveMutex(Status* status) {
  if (semctl(mapped.semid, mapped.count, IPC_RMID) != 0) {
    return failed(status, MOX_SEM_REMOVE_FAILED, errno, mapped.key, __LINE__);
  }
  utlUnmapMutex();
  return cleared(status);
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
  if (mapped.semid < 0) return cleared(status);
  if (change_by(status, *mutex, -1) != 0) return -1;
  mutex->who = getpid();
  ++mutex->hold_count;
  return 0;
}

int urlsem(Status* status, MutexRecord* mutex) {
  if (mapped.semid < 0 || mutex->who == 0) return cleared(status);
  const pid_t self = getpid();
  if (mutex->who != self) {
    std::printf("pid %d mutex %d: mutex->who was %d\n", self, mutex->number, mutex->who);
    status->abort("urlsem: Mutex reserved by another process");
  }
  mutex->who = 0;
  return change_by(status, *mutex, 1);
}

int ucksem(Status* status, int* state, int* index) {
  // The set may hold more semaphores than were asked for, and GETALL writes them all.
  semid_ds set{};
  semun into{};
  into.buf = &set;
  if (semctl(mapped.semid, 0, IPC_STAT, into) != 0) {
    return failed(status, MOX_SEM_OPERATION_FAILED, errno, mapped.key, __LINE__);
  }
  std::vector<unsigned short> values(set.sem_nsems);
  into.array = values.data();
  if (semctl(mapped.semid, 0, GETALL, into) != 0) {
    return failed(status, MOX_SEM_OPERATION_FAILED, errno, mapped.key, __LINE__);
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
  return cleared(status);
}
