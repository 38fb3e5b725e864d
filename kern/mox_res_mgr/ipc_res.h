// The IPC resources of one node: a shared-memory segment for each buffer and one semaphore set, on
// the eight keys from the node's base key on.
#pragma once

#include <array>
#include <cstdint>

#include "kern/mox_res_mgr/mutex_handle.h"
#include "kern/mox_res_mgr/undo.h"
#include "utl/semops.h"

namespace resmgr {

// What lies at which offset from the base key. Offsets 0 and 6 stay free; the semaphore set shares
// the number of the SQL buffer, as the keys of sets and segments are spaces of their own.
enum key_offset : unsigned {
  DATABUF = 1,
  TLOGBUF = 2,
  NLOGBUF = 3,
  DICTBUF = 4,
  SQLBUF = 5,
  EVBUF = 7,
  SEMAPHORES = 5,
};
constexpr unsigned keys_per_node = 8;
constexpr int semaphores_per_node = 8;

struct ipc_res {
  ipc_res();

  std::int32_t ipcbase = 0;                         // 0: not given
  std::array<std::uint32_t, keys_per_node> size{};  // bytes, by key_offset; 0: no segment wanted
  MutexHandle mutex = unmapped_mutex();

  // Creates what is wanted and enters it in `log`, also when it fails half-way; a semaphore set
  // that exists is taken over. Failure is shown by `stat`: 5510 (key 0, or the kernel's refusal),
  // 5512, 5514 and 5515 with severity 4, 5520 and 5521 with severity 3.
  void create(undo_log& log);

  // Moves the base key upwards to the first one whose eight keys are free, and reserves them for
  // this run. False when the keys in use cannot be told.
  bool search();

  // Removes whatever of the node's resources exists. Reports each failure and goes on; `stat` is
  // clear afterwards.
  void del();

  // The key at an offset; behind the largest key follows the smallest.
  std::int32_t key(unsigned offset) const;

 private:
  bool create_segment(unsigned offset, undo_log& log);
  void create_semaphores(undo_log& log);
  void delete_segment(unsigned offset);
  void delete_semaphores();
};

}  // namespace resmgr
