// The progress of reading: lines of 64 characters, one a chunk, each headed by the number of its
// first block. Lines about single blocks may interrupt it; from verbosity 3 they replace it.
#pragma once

#include <cstdint>

class Progress {
 public:
  explicit Progress(int verbosity) : shown_(verbosity < 3) {}

  void begin_chunk(std::uint64_t first_block);
  void end_chunk(char mark);
  // To be called after each printed line about a block.
  void interrupt() { interrupted_ = true; }

 private:
  bool shown_;
  bool interrupted_ = false;
  int column_ = 0;
};
