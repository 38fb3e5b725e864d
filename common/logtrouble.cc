#include "common/logtrouble.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "common/base/printable.h"
#include "common/quietwrite.h"

const char* logmsgPrefix = nullptr;
int logmsgNodeno = -1;

namespace {

constexpr std::chrono::milliseconds slow(100);

const char* prefixOrBlanks() {
  return logmsgPrefix != nullptr ? logmsgPrefix : "      ";
}

}  // namespace

void printLogTrouble(const std::string& text) {
  const QuietWrite quiet;
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

void warnLogTrouble(const std::string& what, int os_error) {
  printLogTrouble(std::string(prefixOrBlanks()) + " WRN p:" + std::to_string(getpid()) +
                  " t:" + std::to_string(std::time(nullptr)) + " could not " + printable(what) +
                  ":" + std::strerror(os_error) + "\n");
}

std::string SlowWatch::complaint(const char* what) const {
  const auto took = std::chrono::steady_clock::now() - started_;
  if (took <= slow) return "";
  const std::time_t now = std::time(nullptr);
  char now_text[32] = "";
  ctime_r(&now, now_text);
  const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
  return std::string(prefixOrBlanks()) + " BEWARE " + std::string(now_text, 16) + " " + what +
         " took too long (" + std::to_string(milliseconds) + " msecs)\n";
}
