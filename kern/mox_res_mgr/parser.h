// Turns the node specifications of a command into records, one for each node number, merged in the
// order of their first appearance. Starts at the first "node"; anything that does not fit is a
// syntax error, which ends the process before any resource is touched.
#pragma once

#include "kern/mox_res_mgr/op.h"

namespace resmgr {

// Prints every record after parsing. A switch for whoever debugs the tool; no option sets it.
extern bool dbug;

op_list operands();         // CHECK: IPC resources and devices
op_list create_operands();  // CREATE: IPC resources
op_list delete_operands();  // DELETE: base keys and device paths

}  // namespace resmgr
