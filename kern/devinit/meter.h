// How far a pass over the blocks has come, for somebody who waits for it: a line on standard error
// for each SIGUSR1, and a line that is renewed once a second where standard error is a terminal and
// standard output is not. Neither touches the report on standard output.
#pragma once

#include <chrono>
#include <cstdint>

class Meter {
 public:
  // `done` is what happens to the blocks: "written".
  Meter(const char* done, std::uint64_t blocks, std::uint32_t block_size);
  Meter(const Meter&) = delete;
  Meter& operator=(const Meter&) = delete;
  ~Meter();

  // To be called after each chunk, with the blocks that it had.
  void advance(std::uint64_t blocks);

 private:
  void print_line() const;
  void draw();
  double rate() const;  // bytes a second
  double seconds_left() const;

  const char* done_word_;
  bool watched_;
  std::uint64_t all_;
  std::uint32_t block_size_;
  std::uint64_t done_ = 0;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point drawn_;
};

// From now on SIGUSR1 asks for a line, unless it was ignored. 0 or the errno.
int answer_sigusr1();

// Takes the line off the terminal, if there is one, in front of what shall stand there.
void erase_meter();
