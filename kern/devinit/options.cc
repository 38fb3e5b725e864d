#include "kern/devinit/options.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <string>

#include "common/base/number.h"
#include "common/base/printable.h"
#include "common/releaseinfo.h"
#include "kern/device/settings.h"
#include "kern/devinit/runstate.h"

namespace {

constexpr int program_number = 16;

// What is no number, or none of 32 bits, leaves the value as it is.
template <class Integer>
void read_number(int letter, const char* program, Integer& value) {
  const auto number = readNumber(optarg);
  const bool usable = number && number->isWithin(INT_MIN, INT_MAX);
  if (usable) value = static_cast<Integer>(number->value);
  if (usable && number->isWhole()) return;
  const std::string outcome =
      usable ? "read as " + std::to_string(number->value) : "ignored: no number of 32 bits";
  (void)std::fprintf(stderr, "%s: -%c '%s' %s\n", printable(program).c_str(), letter,
                     printable(optarg).c_str(), outcome.c_str());
}

void set_option(int letter, const char* program, Options& options) {
  switch (letter) {
    case 'b':
      read_number(letter, program, options.blocks);
      break;
    case 'f':
      options.file = optarg;
      break;
    case 's':
      read_number(letter, program, options.block_size);
      options.block_size = (options.block_size + 3) / 4 * 4;
      break;
    case 'n':
      read_number(letter, program, options.device_number);
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
      read_number(letter, program, syncsz);
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
    set_option(letter, argv[0], options);
  }
  if (optind < argc) {
    // "devinit -b 5 -f FILE V" was meant to verify, and must not initialize the file.
    (void)std::fprintf(stderr, "%s: unexpected argument '%s'\n", printable(argv[0]).c_str(),
                       printable(argv[optind]).c_str());
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
      printable(program).c_str());
}
