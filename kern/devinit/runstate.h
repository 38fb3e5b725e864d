// What a run of the device initialiser knows about itself, and how it ends before its time: by an
// error or an interrupt.
#pragma once

#include <cstdint>
#include <string>

#include "common/base/pathwalk.h"

extern std::string clean_name;    // the file being written, to be removed on an error; empty: none
extern int clean_fd;              // to be closed on an error; -1: none
extern int nodio;                 // 1: no direct I/O
extern int deepfrom;              // microseconds; see Pace in kern/devinit/chunkpass.h
extern std::uint64_t devwritten;  // bytes of blocks written so far
extern std::uint64_t totdevsize;  // bytes of blocks to be written in all

// Every setting and count as in a fresh process, those of kern/device/settings.h too; but not
// `deepfrom`, which is the caller's.
void reset_run();

// Before a file is opened at the end of the path: what `cleanup` will need, so that it allocates
// nothing. The path is what errors name.
void guard_place(PathEnd end, const std::string& path);
const PathEnd& guarded_place();
// From now on `cleanup` closes the file that was opened there.
void guard_file(Descriptor file);
// Sets clean_name: from now on `cleanup` removes the file as well, or overwrites the header of a
// device, because it would make a device that was written in part pass for an initialized one.
void guard_content();
// Closes the file and leaves it as it is. 0 or the errno.
int close_guarded_file();
// As close_guarded_file for a file that is complete: removes it nevertheless when the close fails.
int release_file();

// Closes clean_fd. If clean_name is set, removes the regular file when it still stands there, so
// that a stranger's file stays; a device keeps its node and loses its header. What fails there is
// reported.
void cleanup();

// Where an interrupt ends a run: before anything is created, between two transfers, and at the end.
// After a signal it cleans up and dies of it, without waiting for the reader of the report.
void checkpoint();

// Shows what was printed so far. A report that is lost is an error at the end of the run, not here.
void flush_report();

// Prints "\nDEVINIT-ERROR: " and the text on standard error, then the printable name of an object,
// and the OS text of a non-zero error.
void devinit_report(const char* text, int os_error = 0, const std::string& object = {});

// Reports, cleans up and ends the process with status 1.
[[noreturn]] void devinit_fail(const char* text, int os_error = 0, const std::string& object = {});
