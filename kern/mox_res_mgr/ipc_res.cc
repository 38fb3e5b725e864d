#include "kern/mox_res_mgr/ipc_res.h"

#include <sys/shm.h>

#include <cerrno>
#include <cstdio>

#include "common/sharedmem.h"
#include "kern/mox_res_mgr/ipc_hints.h"
#include "kern/mox_res_mgr/key_list.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

constexpr key_offset segment_offsets[] = {DATABUF, TLOGBUF, NLOGBUF, DICTBUF, SQLBUF, EVBUF};
constexpr std::uint32_t default_dictbuf = 0x400000;

// More sets than any host can have: the kernel numbers them with 24 bits.
constexpr int most_semaphore_sets = 1 << 24;

// Whether a look-up that failed has nevertheless told that the set is there: it is another user's,
// or has fewer semaphores.
bool set_exists(int os_error) {
  return os_error == EACCES || os_error == EINVAL;
}

// How far to step from `base` to leave behind the last key in use among its eight; 0: all are free.
unsigned step_over_used_keys(const key_list& used, const ipc_res& base) {
  for (unsigned offset = keys_per_node; offset > 0; --offset) {
    if (used.contains(base.key(offset - 1))) return offset;
  }
  return 0;
}

}  // namespace

ipc_res::ipc_res() {
  size[DICTBUF] = default_dictbuf;
}

std::int32_t ipc_res::key(unsigned offset) const {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(ipcbase) + offset);
}

void ipc_res::create(undo_log& log) {
  initStatus_s(&stat);
  if (ipcbase == 0) {
    std::printf("Error: illegal key 0\n");
    stat.set(SEV_SYSTEMERR, MOX_SHM_GET_FAILED, 0, {"0"});
    return;
  }
  std::printf("checking ipcbase %d\n", ipcbase);
  for (const key_offset offset : segment_offsets) {
    if (size[offset] != 0 && !create_segment(offset, log)) return;
  }
  create_semaphores(log);
}

bool ipc_res::create_segment(unsigned offset, undo_log& log) {
  announcement<shm_undo_op> entry(log, key(offset));
  char* address = nullptr;
  const int shmid =
      sharedCreateIfNotExists(key(offset), static_cast<int>(size[offset]), address, stat);
  const bool ours = shmid != -1 && stat.number != MOX_SHM_EXISTS;
  if (ours) entry.made(shmid, address);
  if (!stat.failed()) return true;
  if (stat.number == MOX_SHM_EXISTS) {
    hint_at_segment_in_the_way(key(offset));
  } else if (stat.number == MOX_SHM_GET_FAILED) {
    hint_at_segment_limit(size[offset], stat.os_error);
  }
  pushTraceStatus(&stat);
  return false;
}

void ipc_res::create_semaphores(undo_log& log) {
  announcement<sem_undo_op> entry(log, key(SEMAPHORES), semaphores_per_node);
  utlMapMutex(&stat, &mutex, key(SEMAPHORES), semaphores_per_node);
  if (!stat.failed()) {
    const int adopted = utlMappedMutex();
    entry.made(adopted);
    utlUnmapMutex();
    hint_at_adopted_set(key(SEMAPHORES), adopted);
    return;
  }
  // Only a set that is known to be absent is created.
  if (stat.os_error == ENOENT) {
    initStatus_s(&stat);
    const Whose whose = utlCreateOwnMutex(&stat, &mutex, key(SEMAPHORES), semaphores_per_node);
    if (whose == Whose::OURS) entry.made(utlMappedMutex());
  }
  if (!stat.failed()) return;
  hint_at_semaphore_limit(stat.os_error);
  emit_korv_error();
  std::printf("Error: mutex creation failed\n");
  pushTraceStatus(&stat);
}

bool ipc_res::search() {
  initStatus_s(&stat);
  key_list& used = get_shm_list();
  if (stat.failed()) return false;
  for (int sets_met = 0; sets_met < most_semaphore_sets;) {
    if (const unsigned step = step_over_used_keys(used, *this); step > 0) {
      ipcbase = key(step);
      continue;
    }
    utlMapMutex(&stat, &mutex, key(SEMAPHORES), semaphores_per_node);
    utlUnmapMutex();
    if (stat.failed() && stat.os_error == ENOENT) {
      for (unsigned offset = 0; offset < keys_per_node; ++offset) used.insert(key(offset));
      return true;
    }
    if (stat.failed() && !set_exists(stat.os_error)) break;
    ipcbase = key(1);
    ++sets_met;
  }
  stat.report("search of free keys:");
  return false;
}

void ipc_res::del() {
  initStatus_s(&stat);
  if (ipcbase == 0) {
    std::printf("Error: illegal key 0\n");
    return;
  }
  delete_semaphores();
  for (const key_offset offset : segment_offsets) delete_segment(offset);
}

void ipc_res::delete_semaphores() {
  utlMapMutex(&stat, &mutex, key(SEMAPHORES), semaphores_per_node);
  if (stat.failed()) {
    emit_korv_error();
    std::printf("Error: cannot attach to semaphore %d\n", key(SEMAPHORES));
    initStatus_s(&stat);
    return;
  }
  utlRemoveMutex(&stat);
  if (stat.failed()) {
    emit_korv_error();
    std::printf("Error: delete of semaphore %d failed\n", key(SEMAPHORES));
    initStatus_s(&stat);
  }
}

void ipc_res::delete_segment(unsigned offset) {
  // Looked up first, as a segment that is in use loses its key with the removal.
  const int shmid = shmget(key(offset), 0, 0);
  sharedRemove(key(offset), 0, stat);
  const bool optional = offset == EVBUF && stat.os_error == ENOENT;
  if (!stat.failed()) {
    hint_at_attached_segment(key(offset), shmid);
  } else if (!optional) {
    emit_korv_error();
    std::printf("Error: delete of shared memory segment %d failed\n", key(offset));
  }
  initStatus_s(&stat);
}

}  // namespace resmgr
