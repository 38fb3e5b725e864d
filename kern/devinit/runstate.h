// What a run of the device initialiser knows about itself, and how it ends before its
// time: by an error or an interrupt.
#pragma once

#include <cstdint>
#include <string>

extern std::string clean_name;    // the file being written, to be removed on an error
extern int clean_fd;              // to be closed on an error; -1: none
extern int nodio;                 // 1: no direct I/O
extern std::uint64_t devwritten;  // bytes of blocks written so far
extern std::uint64_t totdevsize;  // bytes of blocks to be written in all

// Closes clean_fd. Unless verifying, also removes clean_name if that still is the regular file
// which was open there: device nodes and strangers' files stay.
void cleanup();

// Where an interrupt ends a run: before anything is created, between two transfers, and at the end.
// After a signal it cleans up and dies of it, without waiting for the reader of the report.
void checkpoint();

// Shows what was printed so far. A report that is lost is an error at the end of the run, not here.
void flush_report();

// Prints "\nDEVINIT-ERROR: " and the text on standard error, and the OS text of a non-zero error.
void devinit_report(const char* text, int os_error = 0);

// Reports, cleans up and ends the process with status 1.
[[noreturn]] void devinit_fail(const char* text, int os_error = 0);
