#include "kern/mox_res_mgr/undo.h"

#include <cerrno>

#include "common/sharedmem.h"
#include "kern/device/devicefile.h"
#include "kern/mox_res_mgr/ipc_hints.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

void replay(undo_log& log) {
  for (std::unique_ptr<undo_op>& entry : log) {
    entry->undo();
    entry.reset();
  }
  log.clear();
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

void device_undo_op::undo() {
  say("removing file %s\n", path_.c_str());
  if (!mox_unlink(file_)) {
    log_os_error("removing", file_, errno);
    emit_korv_error();
    say("Error: undo of device %s create failed\n", path_.c_str());
    initStatus_s(&stat);
  }
}

}  // namespace resmgr
