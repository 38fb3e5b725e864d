// The command line of the device initialiser.
#pragma once

#include <cstdint>

struct Options {
  const char* file = nullptr;
  int blocks = 0;
  int device_number = 0;
  std::int64_t block_size = 8192;  // rounded up to a multiple of 4, otherwise as given
  bool log_device = false;
  bool fast = false;
  bool paranoid = false;
};

enum class OptionsResult { RUN, DONE, WRONG };

// Fills the options, and the settings `syncsz`, `nodio` and `readVerify`. Answers the requests for
// usage and release information. Names on standard error what it did not read: an argument that is
// no number to its end, and, with the result WRONG, what is no option.
OptionsResult parse_options(int argc, char** argv, Options& options);

void usage(const char* program);
