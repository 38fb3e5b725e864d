// System V shared memory behind status records. Every operation that takes a Status sets it:
// cleared on success, and on failure to one of the numbers named here with severity 4, the OS error
// number and one parameter, the key or the identifier. A server locks what is attached with
// the hooks of common/lockmem.h.
#pragma once

#include "common/base/whose.h"
#include "errutils/statuss.h"

// Extra flags for every attach; 0 unless a platform asks for shared page tables.
extern int intimateSharedMemory;

// Create flag, and read and write for owner and group.
constexpr int ipcCreateFlags = 01660;

// The keys of all segments of the host, also of those that the caller may not read. Sets *count to
// their number and, unless keys is null or n is 0, writes them to keys. False, with errno set, when
// the host's list cannot be read or n is smaller than the number of segments.
bool sharedKeys(int* keys, unsigned n, unsigned* count);

// Size in bytes, at most INT_MAX. 5514 (identifier).
int sharedSize(int shmid, Status& status);
// Size in bytes, at most UINT_MAX; 0 on failure. 5510 (key) from the look-up, 5514 (key) from the
// status call.
unsigned sharedSizeFromKey(int key, Status& status);

// shmget. Returns the identifier, or -1. 5510 (key), also when `expected` is not 0 and not the size
// of the segment; 5514 (identifier).
int sharedGet(int key, int size, int expected, Status& status, int flags);

// Creates a segment, or finds an existing one of a fitting size. Errors as sharedGet.
int sharedCreate(int key, int size, Status& status);
// Removes a segment of that key if there is one, creates it anew and attaches it at `address`
// (null: the system chooses); key 0 always makes a private one. Returns the address, or null.
// Errors as sharedGet; 5511 (identifier), 5512 (key). Nothing that it created is left behind by a
// failure.
char* sharedCreate(int key, int size, char* address, Status& status);

struct Segment {
  int id = -1;
  char* address = nullptr;  // null: not attached
  Whose whose = Whose::NOBODYS;
};

// Creates a segment that nobody else has and attaches it at `address` (null: the system chooses),
// where it stays. After a failure, STRANGERS: the key is taken (5510, EEXIST); OURS: the segment
// was made and could not be removed again; NOBODYS: there is none. 5510 (key), 5512 (key), and what
// incLockMem sets.
Segment createSegment(int key, int size, char* address, Status& status);

// The same for callers that need the identifier alone: 5515 (key, no OS error) and the other
// segment's identifier when the key is taken. Does nothing when the status holds a failure already.
int sharedCreateIfNotExists(int key, int size, char*& address, Status& status);

// Null on failure. 5512 (no parameter).
char* sharedAttach(int shmid, char* address, Status& status, int writable);
// 0, or -1 on failure. 5513 (no parameter).
int sharedDetach(char* address, Status& status);

// 5511 (identifier).
void sharedRemove(int shmid, Status& status);
// By key; `size` is not used. 5510 (key) when there is none (ENOENT), 5511 (identifier).
void sharedRemove(int key, unsigned size, Status& status);
// By key, and only the segment `shmid`: another segment that has the key by now stays. 5510 (key)
// when the key names no segment, 5511 (identifier; EIDRM when the key names another segment).
void sharedRemoveOwned(int key, int shmid, Status& status);
