// What a user sees of a syntax error.
#pragma once

#include <string>

#include "kern/mox_res_mgr/lexer.h"

namespace resmgr {

// One line in the log: the place if one is given ("FILE, line 3, column 17"), and advice where the
// cause of the mistake is likely. Nothing when there is neither.
void explain(const syntax_error& mistake, const std::string& place);

// The reason if there is one, what was not understood, and the text read so far with a caret under
// its last character: lines, each with its end.
std::string describe(const syntax_error& mistake);

// Prints this description and the usage text, and ends the process with status 1.
[[noreturn]] void crash(const syntax_error& mistake);

}  // namespace resmgr
