#include "kern/mox_node/make.h"

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>

#include "common/interrupt.h"
#include "common/sharedmem.h"
#include "kern/mox_node/failure.h"
#include "kern/mox_res_mgr/report.h"

namespace moxnode {

namespace {

// The layout that semctl expects; no header declares it.
union semun {
  int val;
  semid_ds* buf;
  unsigned short* array;
};

[[noreturn]] void fail_to_create(const std::string& what) {
  const int os_error = resmgr::stat.os_error;
  if (resmgr::stat.number == MOX_SHM_EXISTS || os_error == EEXIST) {
    throw Failure(what + " was made by somebody else meanwhile");
  }
  throw Failure("creating " + what, os_error);
}

// Both keep the mode and return 0 or the errno.
int set_owner_of_segment(int id, const Owner& owner) {
  shmid_ds segment{};
  if (shmctl(id, IPC_STAT, &segment) != 0) return errno;
  segment.shm_perm.uid = owner.uid;
  if (owner.gid) segment.shm_perm.gid = *owner.gid;
  return shmctl(id, IPC_SET, &segment) == 0 ? 0 : errno;
}

int set_owner_of_set(int id, const Owner& owner) {
  semid_ds set{};
  semun at{};
  at.buf = &set;
  if (semctl(id, 0, IPC_STAT, at) < 0) return errno;
  set.sem_perm.uid = owner.uid;
  if (owner.gid) set.sem_perm.gid = *owner.gid;
  return semctl(id, 0, IPC_SET, at) == 0 ? 0 : errno;
}

}  // namespace

Maker::~Maker() {
  resmgr::replay(log_);
}

void Maker::checkpoint() {
  const int signal = pendingInterrupt();
  if (signal == 0) return;
  resmgr::replay(log_);
  dieOfSignal(signal);
}

void Maker::make_missing(const NodeReport& node) {
  resmgr::ipc_res wanted;
  wanted.ipcbase = node.ipcbase;
  for (const ObjectReport& segment : node.segments) {
    if (segment.state != State::ABSENT) continue;
    wanted.size[segment.buffer->offset] = static_cast<std::uint32_t>(segment.wanted);
    make_segment(wanted, *segment.buffer, full_name(node, segment));
    checkpoint();
  }
  if (node.set.state == State::ABSENT) make_set(wanted, full_name(node, node.set));
  checkpoint();
}

void Maker::make_segment(resmgr::ipc_res& node, const resmgr::buffer& buffer,
                         const std::string& what) {
  if (!node.create_segment(buffer, log_)) fail_to_create(what);
  auto& entry = static_cast<resmgr::shm_undo_op&>(*log_.back());
  if (owner_) hand_over(set_owner_of_segment(entry.id(), *owner_), what);
  // A segment is attached by its users alone; the undo has nothing to detach from here on.
  sharedDetach(entry.address(), resmgr::stat);
  if (resmgr::stat.failed()) throw Failure("detaching " + what, resmgr::stat.os_error);
  entry.made(entry.id(), nullptr);
}

void Maker::make_set(resmgr::ipc_res& node, const std::string& what) {
  if (!node.create_set(log_)) fail_to_create(what);
  const auto& entry = static_cast<resmgr::sem_undo_op&>(*log_.back());
  if (owner_) hand_over(set_owner_of_set(entry.id(), *owner_), what);
}

void Maker::hand_over(int os_error, const std::string& what) const {
  if (os_error == 0) return;
  throw Failure("giving " + what + " to user " + std::to_string(owner_->uid), os_error);
}

}  // namespace moxnode
