// The usage text: the definition of the command language, as the user reads it.
#pragma once

namespace resmgr {

// The name that the tool was called by; set before anything else.
extern const char* prog_name;

// Prints the text on standard output.
void usage();

}  // namespace resmgr
