// The time of one log message, beside a bare write of the same bytes to the same kind of file: what
// the logger costs is the difference.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "common/logger.h"

namespace {

constexpr const char* line = "the node has taken its place in the cluster\n";

// A new file in the working folder, gone when the benchmark ends.
class LogFile {
 public:
  LogFile() { logmsg.setFileNameAll(name()); }
  ~LogFile() { ::unlink(name()); }
  static const char* name() { return "log_bench.log"; }
};

void bare_write(benchmark::State& state) {
  const LogFile file;
  const int fd = ::open(LogFile::name(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
  const std::string text = "2024-01-31 12:00:00.123 p:12345 " + std::string(line);
  for (auto _ : state) {
    if (::write(fd, text.data(), text.size()) < 0) std::abort();
  }
  ::close(fd);
}
BENCHMARK(bare_write);

void info_line(benchmark::State& state) {
  const LogFile file;
  for (auto _ : state) {
    logmsg.start(LEVEL_INF, __FILE__, __LINE__);
    logmsg.txt(line);
    logmsg.logg();
  }
}
BENCHMARK(info_line);

void error_block(benchmark::State& state) {
  const LogFile file;
  for (auto _ : state) {
    logmsg.start(LEVEL_INF, __FILE__, __LINE__);
    for (int i = 0; i < 20; ++i) {
      logmsg.printFix(" ", static_cast<unsigned>(i), 4, 0);
      logmsg.txt("  'a/path/of/some/length/source.cc");
      logmsg.printInt("' line ", 42, "\n");
    }
    logmsg.logg();
  }
}
BENCHMARK(error_block);

}  // namespace
