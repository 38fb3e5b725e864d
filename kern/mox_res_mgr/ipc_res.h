// The IPC resources of one node: a shared-memory segment for each buffer and one semaphore set, on
// the eight keys from the node's base key on.
#pragma once

#include <array>
#include <cstdint>

#include "kern/mox_res_mgr/buffers.h"
#include "kern/mox_res_mgr/undo.h"
#include "utl/semops.h"

namespace resmgr {

// The key of the semaphore set lies at the offset of the SQL buffer's: the keys of sets and of
// segments are spaces of their own.
constexpr unsigned semaphores_offset = 5;
constexpr int semaphores_per_node = 8;

struct ipc_res {
  ipc_res();

  std::int32_t ipcbase = 0;                         // 0: not given
  std::array<std::uint32_t, keys_per_node> size{};  // bytes, by key offset; 0: no segment wanted
  MutexHandle mutex = unmapped_mutex();
  bool searched = false;  // a creation also fails when somebody took another of the eight keys

  // Creates what is wanted and enters it in `log`, also when it fails half-way; a semaphore set
  // that exists is taken over. Failure is shown by `stat`: 5510 (key 0, or the kernel's refusal),
  // 5512, 5514 and 5515 with severity 4, 5520 and 5521 with severity 3.
  void create(undo_log& log);

  // The parts of a creation, for a caller that takes over nothing. Each makes an object that nobody
  // else has, of the size wanted, and enters it in `log`. False, with `stat`, a hint in the log and
  // nothing printed, when that fails: also with 5515 when the segment exists, and 5520 (EEXIST)
  // when the set does.
  bool create_segment(const buffer& wanted, undo_log& log);
  bool create_set(undo_log& log);

  // Moves the base key upwards to the first one whose eight keys are free, and reserves them for
  // this run. False, with the reason in the log, when there is none below the end of the keys or
  // the keys in use cannot be told.
  bool search();
  // Takes the reservation back, and lets the next search look at the host's keys again.
  void give_up_base();

  // Removes whatever of the node's resources exists. Reports each failure and goes on; `stat` is
  // clear afterwards.
  void del();

  // The key at an offset; behind the largest key follows the smallest.
  std::int32_t key(unsigned offset) const;

  // Whether a creation makes a segment with that key.
  bool wants(std::int32_t key) const;

 private:
  void adopt_or_create_set(undo_log& log);
  void refuse_neighbour();
  void delete_segment(const buffer& row);
  void delete_semaphores();
};

}  // namespace resmgr
