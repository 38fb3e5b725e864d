// System V semaphore sets used as sets of mutexes. The layer keeps one set per process: mapping or
// creating a second one replaces it. Failures are set in the status with severity 3, the OS error
// number and the key as parameter; success clears the status.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "common/base/whose.h"
#include "errutils/statuss.h"

// What callers keep for a set; neither read nor written here.
struct MutexHandle {
  char bytes[8];
};

// One mutex in memory that the processes share.
struct MutexRecord {
  std::int32_t number;
  std::int32_t who;  // process id of the holder; 0: free
  std::int32_t hold_count;
  std::int32_t number_again;
};

// Creates a set of `count` semaphores, or finds the one that has the key, maps it and sets the
// values of all its semaphores to 1. 0, or -1: 5520 from the creation, 5521 from setting the
// values.
int utlCreateMutex(Status* status, MutexHandle* handle, int key, int count);
// The same for a set that nobody else has. After a failure, STRANGERS: the key is taken (5520,
// EEXIST); OURS: the set was made, could not be removed again and is mapped; NOBODYS: there is
// none.
Whose utlCreateOwnMutex(Status* status, MutexHandle* handle, int key, int count);
// Finds an existing set without creating one. 0, or -1: 5520.
int utlMapMutex(Status* status, MutexHandle* handle, int key, int count);
// Maps a set that the caller knows by its identifier. Cannot fail.
void utlMapKnownMutex(int semid, int key, int count);
// The identifier of the set that is mapped, or -1.
int utlMappedMutex();
// Forgets the set; removes nothing.
void utlUnmapMutex();
// Removes the mapped set and forgets it. 0, or -1: 5522.
int utlRemoveMutex(Status* status);

// The table has one record per semaphore of the mapped set and stays the caller's.
void utlInitMutex(MutexHandle* handle, MutexRecord* table);
void utlBindMutex(MutexHandle* handle, MutexRecord* table);
// Frees every record that the process holds; the semaphores are the kernel's to undo.
void utlClearMutex(MutexHandle* handle, pid_t pid);

// Takes and releases a mutex; nothing happens while no set is mapped. 0, or -1: 5521. Releasing one
// that another process holds ends the process with status 1.
int uwtsem(Status* status, MutexRecord* mutex);
int urlsem(Status* status, MutexRecord* mutex);

// Looks for the first semaphore out of order. *state: 0 none (*index -1), 1 its value is above 1,
// 2 it is free and yet has an owner. 0, or -1: 5521.
int ucksem(Status* status, int* state, int* index);
