// What the user of mox_res_mgr sees of a syntax error.
#pragma once

#include "kern/mox_res_mgr/lexer.h"

namespace resmgr {

// Prints the reason if there is one, what was not understood, the text read so far with a caret
// under its last character, and the usage text, and ends the process with status 1.
[[noreturn]] void crash(const syntax_error& mistake);

}  // namespace resmgr
