// The progress of a pass: lines of 64 characters, one a chunk, each headed by the number of its
// first block. Lines about single blocks may interrupt that of reading; from verbosity 3 they
// replace it.
#pragma once

#include <cstdint>

constexpr int chunks_per_line = 64;

void print_line_head(std::uint64_t first_block);

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
