// Signals that must not end a program between two of its steps: SIGINT, SIGTERM and SIGHUP are only
// noted, and the program acts on them at checkpoints of its own:
//   holdInterrupts();
//   ... a step ...
//   if (const int signal = pendingInterrupt()) { ...clean up...; dieOfSignal(signal); }
#pragma once

// From now on the signals are noted; one that the caller had ignored stays ignored. A call that
// waits ends with EINTR, also when the signal came just before it. 0, or the errno of a refusal.
int holdInterrupts();

// The signal that arrived last, or 0.
int pendingInterrupt();

// Ends the process by that signal, as if it had never been held.
[[noreturn]] void dieOfSignal(int signal);
