// One node's request in a command: its IPC resources and its devices. The parser fills the records;
// the commands create, search and delete what they name.
#pragma once

#include <cstdint>
#include <string>

#include "kern/mox_res_mgr/device_res.h"
#include "kern/mox_res_mgr/ipc_res.h"
#include "kern/mox_res_mgr/numbered.h"
#include "kern/mox_res_mgr/undo.h"

namespace resmgr {

using device_list = numbered<device_res>;

struct op {
  explicit op(std::uint32_t node_number) : node(node_number) {}

  std::uint32_t node;
  ipc_res ipc;
  device_list devices;

  // Creates the node's resources, prints its "node-" line and enters in `log` whatever it made,
  // also when it fails. Failure is shown by `stat`.
  void create(undo_log& log);

  // Removes the node's resources. Reports each failure and goes on.
  void del();

  // Moves the base key to the first free range; false when there is none.
  bool search();

  // Whether a base may be searched for this node, with the reason in `message` when not.
  bool search_ok(std::string& message) const;

  // "node-1:ipcbase=5000"
  std::string where() const;

  // Prints the record.
  void debug() const;
};

using op_list = numbered<op>;

// Prints the devices alone.
void debug(const device_list& devices);

}  // namespace resmgr
