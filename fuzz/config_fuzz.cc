// Any configuration file is read to its end, and leaves every variable with an allowed value.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/logger.h"
#include "common/scanconf.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  logmsg.setMethodAll(LogMethod::NOWHERE);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("config", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) {
    std::abort();
  }
  ConfigRecord record;
  Status status;
  scanConf(path.c_str(), record, status, [] {});
  if (status.failed() && status.getText()[0] == '\0') std::abort();
  const bool defines_nodes = !record.nodes.empty();
  addConf(path.c_str(), record, VarSet::instance(), status, [] {});  // each node a second time
  if (defines_nodes && status.number != MOX_NODE_DEFINED_TWICE) std::abort();
  return 0;
}
