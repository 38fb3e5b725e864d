// How devices are opened. The device initialiser sets both from its options; other programs leave
// them as they are.
#pragma once

extern int readVerify;  // 0: for writing; otherwise for reading only, with this verbosity
extern int syncsz;      // MiB between two fdatasync, 0: none; -1: synchronous writes instead
