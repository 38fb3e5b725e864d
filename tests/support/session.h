// Plays a written session with the programs, and says what really happened in the same form:
//   expect_session("$ mox_res_mgr create node-0: ipcbase=0\n"
//                  "Error: illegal key 0\n...; abnormal\n");
#pragma once

#include <string>

// A line behind "$ " is a command of the shell. Below it stand what it prints, the warnings and
// errors of its log behind "log: ", and its status behind "= " unless that is 0, or 1 after an
// abnormal end. In both, "@" is the folder. The report of an error is shown as "5510 S4 TEXT: OS
// TEXT", the usage text as "usage", a node that gets its base as "node-1 at 5", the keys that a
// DELETE misses as "no segment 1, 2"; this process is "pid me", any other one "pid ?". A "\" at its
// end continues a line.
void expect_session(std::string script, const std::string& folder = "@");
