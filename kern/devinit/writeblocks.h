// Writes one chunk over and over: the data blocks with the pattern, the bitmap blocks with zeros.
#pragma once

#include "kern/devinit/chunkpass.h"

// Prints the progress, one "w" a chunk. `chunk` holds IoBuffers::chunk_size bytes. Ends the run on
// a failure.
void write_blocks(DirectFile& file, const IoBuffers& buffers, const unsigned char* chunk,
                  const Extent& extent);

// Says how far the writing came, with the OS text of a non-zero error, and ends the run.
[[noreturn]] void crashwriting(int os_error);
