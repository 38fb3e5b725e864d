#include "kern/devinit/meter.h"

#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <string>

namespace {

using std::chrono::duration;
using std::chrono::steady_clock;

volatile std::sig_atomic_t asked = 0;
bool drawn = false;

extern "C" void noteQuestion(int /*signal*/) {
  asked = 1;
}

std::string bar(double share) {
  constexpr std::size_t width = 30;
  const auto full = static_cast<std::size_t>(share * static_cast<double>(width));
  return std::string(full, '#') + std::string(width - full, '-');
}

}  // namespace

Meter::Meter(const char* done, std::uint64_t blocks, std::uint32_t block_size)
    : done_word_(done),
      watched_(isatty(STDERR_FILENO) != 0 && isatty(STDOUT_FILENO) == 0),
      all_(blocks),
      block_size_(block_size),
      start_(steady_clock::now()),
      drawn_(start_) {}

Meter::~Meter() {
  erase_meter();
}

void Meter::advance(std::uint64_t blocks) {
  constexpr std::chrono::seconds interval(1);
  done_ += blocks;
  if (asked != 0) print_line();
  if (watched_ && steady_clock::now() - drawn_ >= interval) draw();
}

void Meter::print_line() const {
  asked = 0;
  erase_meter();
  (void)std::fprintf(stderr,
                     "%" PRIu64 " of %" PRIu64 " blocks %s, %" PRIu64 " of %" PRIu64
                     " bytes, %.1f MB/s, %.0f s left\n",
                     done_, all_, done_word_, done_ * block_size_, all_ * block_size_, rate() / 1e6,
                     seconds_left());
}

void Meter::draw() {
  const double share = static_cast<double>(done_) / static_cast<double>(all_);
  (void)std::fprintf(stderr, "\r[%s] %3d%% %s, %.1f MB/s, %.0f s left\033[K", bar(share).c_str(),
                     static_cast<int>(share * 100), done_word_, rate() / 1e6, seconds_left());
  drawn = true;
  drawn_ = steady_clock::now();
}

double Meter::rate() const {
  const double seconds = duration<double>(steady_clock::now() - start_).count();
  return static_cast<double>(done_ * block_size_) / seconds;
}

double Meter::seconds_left() const {
  return static_cast<double>((all_ - done_) * block_size_) / rate();
}

int answer_sigusr1() {
  struct sigaction action {};
  if (sigaction(SIGUSR1, nullptr, &action) != 0) return errno;
  if (action.sa_handler == SIG_IGN) return 0;
  action = {};
  action.sa_handler = noteQuestion;
  action.sa_flags = SA_RESTART;  // a question ends no transfer
  return sigaction(SIGUSR1, &action, nullptr) == 0 ? 0 : errno;
}

void erase_meter() {
  if (!drawn) return;
  (void)std::fputs("\r\033[K", stderr);
  drawn = false;
}
