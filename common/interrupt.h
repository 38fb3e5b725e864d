// Signals that must not end a program between two of its steps. Every signal that can be caught and
// whose default ends a process is only noted, and the program acts on it at checkpoints of its own:
//   holdInterrupts();
//   ... a step ...
//   if (const int signal = pendingInterrupt()) { ...clean up...; dieOfSignal(signal); }
#pragma once

// From now on the signals are noted; one that the caller had ignored stays ignored. A call that
// waits ends with EINTR, also when the signal came just before it. A fault of the program itself
// (SIGSEGV and its like, unless another process sent it) ends the process as ever. 0, or the errno
// of a refusal.
int holdInterrupts();

// Every signal as it was before holdInterrupts; one that is still pending takes its effect now.
void releaseInterrupts();

// The signal that arrived last, or 0.
int pendingInterrupt();

// Ends the process by that signal, as if it had never been held.
[[noreturn]] void dieOfSignal(int signal);
