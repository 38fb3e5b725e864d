#include "kern/devinit/options.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "common/releaseinfo.h"
#include "kern/device/settings.h"
#include "kern/devinit/runstate.h"

namespace {

constexpr int program_number = 16;

// Decimal, octal with a leading 0 or hexadecimal with 0x; what is no such number, or none of 32
// bits, leaves the value as it is.
template <class Integer>
void scan_integer(const char* text, Integer& value) {
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(text, &end, 0);
  if (end != text && errno == 0 && number >= INT_MIN && number <= INT_MAX) {
    value = static_cast<Integer>(number);
  }
}

void set_option(int letter, Options& options) {
  switch (letter) {
    case 'b':
      scan_integer(optarg, options.blocks);
      break;
    case 'f':
      options.file = optarg;
      break;
    case 's':
      scan_integer(optarg, options.block_size);
      options.block_size = (options.block_size + 3) / 4 * 4;
      break;
    case 'n':
      scan_integer(optarg, options.device_number);
      break;
    case 'l':
      options.log_device = true;
      break;
    case 'p':
      options.paranoid = true;
      break;
    case 'F':
      options.fast = true;
      break;
    case 'V':
      ++readVerify;
      break;
    case 'D':
      nodio = 1;
      break;
    case 'S':
      scan_integer(optarg, syncsz);
      break;
    default:  // -m and -N say nothing any more
      break;
  }
}

}  // namespace

OptionsResult parse_options(int argc, char** argv, Options& options) {
  optind = 0;
  for (int letter; (letter = getopt(argc, argv, "+b:f:s:n:m:N:lpFhvVDS:")) != -1;) {
    if (letter == '?' || letter == 'h') {
      usage(argv[0]);
      return letter == 'h' ? OptionsResult::DONE : OptionsResult::WRONG;
    }
    if (letter == 'v') {
      printVersionInfo(stdout, program_number);
      if (argc == 2) return OptionsResult::DONE;
    }
    set_option(letter, options);
  }
  if (optind < argc) {
    // A forgotten dash must not turn a verification into an initialisation.
    (void)std::fprintf(stderr, "%s: unexpected argument '%s'\n", argv[0], argv[optind]);
    usage(argv[0]);
    return OptionsResult::WRONG;
  }
  if (readVerify != 0) options.paranoid = false;
  return OptionsResult::RUN;
}

void usage(const char* program) {
  std::printf(
      "Usage: %s\n"
      "       [-s blocksize] -b blocks [-n device-number]\n"
      "       [-l (is logdisk)] [-F (fast)] [-p (paranoid)]\n"
      "       [-D (disable direct I/O)] [-S disk-sync-size (MB)]\n"
      "       [-V (verify device)] -f file \n",
      program);
}
