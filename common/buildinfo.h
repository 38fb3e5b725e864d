/* When and how the program at hand was linked. Each program that mox_program makes (see
   cmake/MoxProgram.cmake) has values of its own; both are null in any other program. */
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

extern const char* const build_link_time; /* "2024-01-31 12:00:00 UTC" */
extern const char* const build_link_command;

#ifdef __cplusplus
}
#endif
