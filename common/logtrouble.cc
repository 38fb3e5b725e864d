#include "common/logtrouble.h"

#include <unistd.h>

#include <cstring>
#include <ctime>

const char* logmsgPrefix = nullptr;
int logmsgNodeno = -1;

namespace {

constexpr int slow_milliseconds = 100;

const char* prefixOrBlanks() {
  return logmsgPrefix != nullptr ? logmsgPrefix : "      ";
}

}  // namespace

void warnLogTrouble(const char* what, int os_error) {
  std::printf("%s WRN p:%u t:%u could not %s:%s\n", prefixOrBlanks(),
              static_cast<unsigned>(getpid()), static_cast<unsigned>(std::time(nullptr)), what,
              std::strerror(os_error));
  std::fflush(stdout);
}

void SlowWatch::report(std::FILE* stream, const char* what) const {
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - started_);
  if (took.count() <= slow_milliseconds) return;
  const std::time_t now = std::time(nullptr);
  char now_text[32] = "";
  ctime_r(&now, now_text);
  std::fprintf(stream, "%s BEWARE %16.16s %s took too long (%d msecs)\n", prefixOrBlanks(),
               now_text, what, static_cast<int>(took.count()));
  std::fflush(stream);
}
