// Formatting of a status record into its text, for example
// `KORV-S-05504: Control operation on file "/dev/x" failed, OS status=22`.
#pragma once

#include "errutils/statuss.h"

// The first word of every formatted text: at most 7 characters, zero-terminated, writable.
extern char status_prefix[8];

// When not 0, texts of errors carry the source positions of the status.
extern int fmtstatus_errtrace;

// Fills the text, the SQL state and the OS message of the record, unless its text is there already.
// A text that does not fit ends in "TRUNCATED!".
void utlFormatStatus(Status* status);
