// The three commands. A CREATE succeeds as a whole or undoes all that it made and ends the process
// with status 1; a CHECK creates for trial and undoes it all; a DELETE goes on past failures.
#pragma once

#include "kern/mox_res_mgr/op.h"

namespace resmgr {

// Runs the command that the words make up. Returns when it ran to its end. Throws a syntax_error
// before anything is touched; a refused "--search", a failed CREATE or a lost report of a CHECK or
// DELETE end the process with status 1.
void execute(int count, char** words);

void create_cmd();
void check_cmd();
void delete_cmd();

// Ends the process with status 1 when one of the nodes may not be searched for.
void search_check(const op_list& ops);

}  // namespace resmgr
