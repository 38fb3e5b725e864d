// Signals that must not stop a CREATE or CHECK half-way: they are noted, and acted on when the node
// in hand is done.
#pragma once

namespace resmgr {

// From now on SIGINT, SIGTERM and SIGHUP are only noted; one that the caller had ignored stays
// ignored.
void hold_interrupts();

// The signal that arrived, or 0.
int pending_interrupt();

// Ends the process by that signal, as if it had never been held.
[[noreturn]] void die_of(int signal);

}  // namespace resmgr
