#include "kern/devinit/progress.h"

#include <cinttypes>
#include <cstdio>

#include "kern/devinit/runstate.h"

void print_line_head(std::uint64_t first_block) {
  std::printf("\n%8" PRIu64 " ", first_block);
}

void Progress::begin_chunk(std::uint64_t first_block) {
  if (!shown_ || column_ % chunks_per_line != 0) return;
  print_line_head(first_block);
  column_ = 0;
  interrupted_ = false;
}

void Progress::end_chunk(char mark) {
  if (shown_) {
    if (interrupted_) std::printf("\n         %*s", column_, "");
    std::printf("%c", mark);
    ++column_;
  }
  interrupted_ = false;
  flush_report();
}
