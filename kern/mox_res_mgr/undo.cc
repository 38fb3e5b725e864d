#include "kern/mox_res_mgr/undo.h"

#include <sys/sem.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <new>
#include <thread>

#include "common/base/printable.h"
#include "common/sharedmem.h"
#include "kern/mox_res_mgr/ipc_hints.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

namespace {

// The run that made the set may be removing it at this very moment. Its process is the one that set
// the values last, unless somebody has used the set since. Waits for a second in all, for whichever
// sets: such a process may also be a database that stays.
void wait_for_rollback(int semid) {
  static int waits_left = 200;
  const pid_t maker = semctl(semid, 0, GETPID);
  for (; waits_left > 0; --waits_left) {
    const bool at_work = maker > 0 && maker != getpid() && (kill(maker, 0) == 0 || errno == EPERM);
    if (!at_work) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

}  // namespace

void replay(undo_log& log, std::size_t from) {
  for (std::size_t i = from; i < log.size(); ++i) {
    try {
      log[i]->undo();
    } catch (const std::bad_alloc&) {
      say("Error: out of memory\n");
    }
    log[i].reset();
  }
  log.resize(from);
}

void shm_undo_op::undo() {
  initStatus_s(&stat);
  if (address_ != nullptr) {
    sharedDetach(address_, stat);
    if (stat.failed()) {
      emit_korv_error();
      say("Error: detach of shared memory segment key %d segid %d failed\n", key_, segid_);
      initStatus_s(&stat);
    }
  }
  sharedRemoveOwned(key_, segid_, stat);
  if (stat.failed()) {
    emit_korv_error();
    say("Error: delete of shared memory segment %d failed\n", key_);
    initStatus_s(&stat);
  } else {
    hint_at_attached_segment(key_, segid_);
  }
}

void sem_undo_op::undo() {
  MutexHandle handle = unmapped_mutex();
  utlMapMutex(&stat, &handle, key_, count_);
  // A look-up that fails for another reason than absence says nothing about the set.
  if (stat.failed() && stat.os_error != ENOENT) utlMapKnownMutex(semid_, key_, count_);
  const int present = utlMappedMutex();
  if (present != -1 && present != semid_) {
    // The key belongs to somebody else's set by now.
    stat.set(SEV_ERROR, MOX_SEM_REMOVE_FAILED, EIDRM, {key_});
    utlUnmapMutex();
  } else {
    utlRemoveMutex(&stat);
  }
  if (stat.failed()) {
    emit_korv_error();
    say("Error: delete of semaphores with %d failed\n", key_);
    initStatus_s(&stat);
  }
}

bool sem_undo_op::stands() const {
  if (whose_ == Whose::OURS) return true;
  wait_for_rollback(semid_);
  const int present = semget(key_, 0, 0);
  if (present == semid_) return true;
  const int os_error = present >= 0 || errno == ENOENT ? EIDRM : errno;
  stat.set(SEV_ERROR, MOX_SEM_OPERATION_FAILED, os_error, {key_});
  return false;
}

// Formatted here because the undo may run when memory is exhausted.
device_undo_op::device_undo_op(const std::string& path) : path_(printable(path)) {}

void device_undo_op::undo() {
  say("removing file %s\n", path_.c_str());
  if (!mox_unlink(file)) {
    const int os_error = errno;
    emit_korv_error();
    say("Error: undo of device %s create failed\n", path_.c_str());
    log_os_error("removing", path_, os_error);
    initStatus_s(&stat);
  }
}

}  // namespace resmgr
