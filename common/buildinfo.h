// When and how the program at hand was linked. Each program has values of its own, which the build
// writes: see mox_program in cmake/MoxProgram.cmake.
#pragma once

extern const char* const build_link_time;  // "2024-01-31 12:00:00 UTC"
extern const char* const build_link_command;
