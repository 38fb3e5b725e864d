// Where an interrupt ends a run: before anything is created, between two transfers, and at the end.
#pragma once

// After a signal: cleans up and dies of it, without waiting for the reader of the report.
void checkpoint();
