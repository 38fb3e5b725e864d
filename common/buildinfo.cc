#include "common/buildinfo.h"

// Weak, so that the values of a program take their place.
#pragma weak build_link_time
#pragma weak build_link_command

const char* const build_link_time = nullptr;
const char* const build_link_command = nullptr;
