// The device initialiser as a function: writes the on-disk format of a device, or verifies it.
#pragma once

// Reports on standard output, errors on standard error. Returns the exit status; an error ends the
// process with status 1, an interrupting signal with that signal. Every call starts afresh.
int devinit(int argc, char** argv);
