// The signals that interrupt a run. A handler only notes the signal; the run looks at its
// checkpoints, between two transfers.
#pragma once

// To be called before anything is created. A signal that is ignored stays ignored. Writing to a
// closed pipe or beyond a file size limit becomes an error of that write.
void catch_interrupts();

// After a signal: cleans up and dies of it, without waiting for the reader of the report.
void checkpoint();
