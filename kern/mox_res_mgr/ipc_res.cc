#include "kern/mox_res_mgr/ipc_res.h"

#include <sys/shm.h>

#include <cerrno>

#include "common/sharedmem.h"
#include "kern/mox_res_mgr/ipc_hints.h"
#include "kern/mox_res_mgr/key_list.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

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
  for (const buffer& row : buffers) size[row.offset] = row.initial;
}

std::int32_t ipc_res::key(unsigned offset) const {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(ipcbase) + offset);
}

void ipc_res::create(undo_log& log) {
  initStatus_s(&stat);
  if (ipcbase == 0) {
    say("Error: illegal key 0\n");
    stat.set(SEV_SYSTEMERR, MOX_SHM_GET_FAILED, 0, {"0"});
    return;
  }
  say("checking ipcbase %d\n", ipcbase);
  for (const buffer& wanted : buffers) {
    if (size[wanted.offset] == 0 || create_segment(wanted, log)) continue;
    pushTraceStatus(&stat);
    return;
  }
  adopt_or_create_set(log);
}

bool ipc_res::create_segment(const buffer& wanted, undo_log& log) {
  const std::int32_t at = key(wanted.offset);
  const std::uint32_t bytes = size[wanted.offset];
  announcement<shm_undo_op> entry(log, at);
  const Segment segment = createSegment(at, static_cast<int>(bytes), nullptr, stat);
  if (segment.whose == Whose::OURS) entry.made(segment.id, segment.address);
  if (!stat.failed()) return true;
  if (segment.whose == Whose::STRANGERS) {
    stat.set(SEV_SYSTEMERR, MOX_SHM_EXISTS, 0, {at});
    hint_at_segment_in_the_way(at);
  } else {
    hint_at_segment_limit(bytes, stat.os_error);
  }
  return false;
}

bool ipc_res::create_set(undo_log& log) {
  const std::int32_t at = key(semaphores_offset);
  announcement<sem_undo_op> entry(log, at, semaphores_per_node);
  const Whose whose = utlCreateOwnMutex(&stat, &mutex, at, semaphores_per_node);
  if (whose == Whose::OURS) entry.made(utlMappedMutex());
  if (!stat.failed()) return true;
  hint_at_semaphore_limit(stat.os_error);
  return false;
}

void ipc_res::adopt_or_create_set(undo_log& log) {
  const std::int32_t at = key(semaphores_offset);
  utlMapMutex(&stat, &mutex, at, semaphores_per_node);
  if (!stat.failed()) {
    const int adopted = utlMappedMutex();
    announcement<sem_undo_op>(log, at, semaphores_per_node).made(adopted);
    utlUnmapMutex();
    hint_at_adopted_set(at, adopted);
    return;
  }
  // Only a set that is known to be absent is created.
  if (stat.os_error == ENOENT && create_set(log)) return;
  emit_korv_error();
  say("Error: mutex creation failed\n");
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
    utlMapMutex(&stat, &mutex, key(semaphores_offset), semaphores_per_node);
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
    say("Error: illegal key 0\n");
    return;
  }
  delete_semaphores();
  for (const buffer& row : buffers) delete_segment(row);
}

void ipc_res::delete_semaphores() {
  utlMapMutex(&stat, &mutex, key(semaphores_offset), semaphores_per_node);
  if (stat.failed()) {
    emit_korv_error();
    say("Error: cannot attach to semaphore %d\n", key(semaphores_offset));
    initStatus_s(&stat);
    return;
  }
  utlRemoveMutex(&stat);
  if (stat.failed()) {
    emit_korv_error();
    say("Error: delete of semaphore %d failed\n", key(semaphores_offset));
    initStatus_s(&stat);
  }
}

void ipc_res::delete_segment(const buffer& row) {
  const std::int32_t at = key(row.offset);
  // Looked up first, as a segment that is in use loses its key with the removal.
  const int shmid = shmget(at, 0, 0);
  sharedRemove(at, 0, stat);
  if (!stat.failed()) {
    hint_at_attached_segment(at, shmid);
  } else if (!row.may_be_absent || stat.os_error != ENOENT) {
    emit_korv_error();
    say("Error: delete of shared memory segment %d failed\n", at);
  }
  initStatus_s(&stat);
}

}  // namespace resmgr
