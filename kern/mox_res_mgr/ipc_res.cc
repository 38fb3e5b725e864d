#include "kern/mox_res_mgr/ipc_res.h"

#include <sys/sem.h>
#include <sys/shm.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <limits>
#include <string>

#include "common/logger.h"
#include "common/sharedmem.h"
#include "kern/mox_res_mgr/ipc_hints.h"
#include "kern/mox_res_mgr/key_list.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

// The last base whose eight keys all lie below the end of the keys.
constexpr std::int64_t last_base = std::numeric_limits<std::int32_t>::max() - (keys_per_node - 1);

// The first base from `base` on whose eight keys are not in the list.
std::int64_t step_over_used_keys(const key_list& used, std::int64_t base) {
  while (base <= last_base) {
    const auto behind = used.upper_bound(static_cast<std::int32_t>(base + keys_per_node - 1));
    if (behind == used.begin() || *std::prev(behind) < base) break;
    base = std::int64_t{*std::prev(behind)} + 1;
  }
  return base;
}

enum class presence { absent, present, unknown };

// What `stat` of utlMapMutex tells of the set. A look-up with a number of semaphores may fail for
// that number, so a failed one is followed by one without.
presence of_set(std::int32_t key) {
  if (!stat.failed()) return presence::present;
  if (stat.os_error == ENOENT) return presence::absent;
  if (semget(key, 0, 0) >= 0 || errno == EACCES) return presence::present;
  return errno == ENOENT ? presence::absent : presence::unknown;
}

}  // namespace

ipc_res::ipc_res() {
  for (const buffer& row : buffers) size[row.offset] = row.initial;
}

std::int32_t ipc_res::key(unsigned offset) const {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(ipcbase) + offset);
}

bool ipc_res::wants(std::int32_t wanted) const {
  return std::ranges::any_of(buffers, [&](const buffer& row) {
    return size[row.offset] != 0 && key(row.offset) == wanted;
  });
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
  if (searched && !stat.failed()) refuse_neighbour();
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
  if (whose == Whose::OURS) entry.made(utlMappedMutex(), whose);
  if (!stat.failed()) return true;
  hint_at_semaphore_limit(stat.os_error);
  return false;
}

void ipc_res::adopt_or_create_set(undo_log& log) {
  const std::int32_t at = key(semaphores_offset);
  utlMapMutex(&stat, &mutex, at, semaphores_per_node);
  if (!stat.failed()) {
    const int adopted = utlMappedMutex();
    announcement<sem_undo_op>(log, at, semaphores_per_node).made(adopted, Whose::STRANGERS);
    utlUnmapMutex();
    hint_at_adopted_set(at, adopted);
    return;
  }
  // Only a set that is known to be absent is created.
  if (of_set(at) == presence::absent) {
    if (create_set(log)) return;
  } else {
    hint_at_set_in_the_way(at);
  }
  emit_korv_error();
  say("Error: mutex creation failed\n");
  pushTraceStatus(&stat);
}

bool ipc_res::search() {
  initStatus_s(&stat);
  key_list& used = get_shm_list();
  if (stat.failed()) return false;
  std::int64_t base = ipcbase;
  while ((base = step_over_used_keys(used, base)) <= last_base) {
    const auto set_key = static_cast<std::int32_t>(base + semaphores_offset);
    utlMapMutex(&stat, &mutex, set_key, semaphores_per_node);
    utlUnmapMutex();
    const presence set = of_set(set_key);
    if (set == presence::absent) {
      ipcbase = static_cast<std::int32_t>(base);
      for (unsigned offset = 0; offset < keys_per_node; ++offset) used.insert(key(offset));
      searched = true;
      return true;
    }
    if (set == presence::unknown) {
      stat.report("search of free keys:");
      return false;
    }
    ++base;
  }
  logLine(LEVEL_ERR, "search of free keys: no eight keys in a row are free from " +
                         std::to_string(ipcbase) + " on");
  return false;
}

void ipc_res::give_up_base() {
  key_list& used = get_shm_list();
  for (unsigned offset = 0; offset < keys_per_node; ++offset) used.erase(key(offset));
  refresh_shm_list();
}

// Another node among the eight keys would lose objects to a DELETE of this one.
void ipc_res::refuse_neighbour() {
  for (unsigned offset = 0; offset < keys_per_node; ++offset) {
    if (size[offset] != 0 || key(offset) == IPC_PRIVATE) continue;
    const bool taken = shmget(key(offset), 0, 0) >= 0 || errno == EACCES;
    if (!taken && errno == ENOENT) continue;
    const int os_error = taken ? 0 : errno;
    stat.set(SEV_SYSTEMERR, taken ? MOX_SHM_EXISTS : MOX_SHM_GET_FAILED, os_error, {key(offset)});
    pushTraceStatus(&stat);
    return;
  }
}

void ipc_res::del() {
  initStatus_s(&stat);
  delete_semaphores();
  for (const buffer& row : buffers) delete_segment(row);
}

void ipc_res::delete_semaphores() {
  utlMapMutex(&stat, &mutex, key(semaphores_offset), semaphores_per_node);
  if (stat.failed()) {
    if (stat.os_error != ENOENT) hint_at_set_in_the_way(key(semaphores_offset));
    emit_korv_error();
    say("Error: cannot attach to semaphore %d\n", key(semaphores_offset));
    initStatus_s(&stat);
    return;
  }
  const std::string set =
      ipcbase == 0 ? describe_set(key(semaphores_offset), utlMappedMutex()) : std::string();
  utlRemoveMutex(&stat);
  if (!stat.failed()) {
    if (ipcbase == 0) hint_at_removal_without_base(set);
    return;
  }
  emit_korv_error();
  say("Error: delete of semaphore %d failed\n", key(semaphores_offset));
  initStatus_s(&stat);
}

void ipc_res::delete_segment(const buffer& row) {
  const std::int32_t at = key(row.offset);
  // Looked up first, as a segment that is in use loses its key with the removal.
  const int shmid = shmget(at, 0, 0);
  const std::string segment = ipcbase == 0 ? describe_segment(at, shmid) : std::string();
  sharedRemove(at, 0, stat);
  if (!stat.failed()) {
    if (ipcbase == 0) hint_at_removal_without_base(segment);
    hint_at_attached_segment(at, shmid);
  } else if (!row.may_be_absent || stat.os_error != ENOENT) {
    emit_korv_error();
    say("Error: delete of shared memory segment %d failed\n", at);
  }
  initStatus_s(&stat);
}

}  // namespace resmgr
