#include <cstdio>
#include <cstdlib>

#include "kern/mox_res_mgr/report.h"

namespace resmgr {

// Stands alone so that a test or a fuzz target can bring an end of its own.
void crash() {
  std::printf("abnormal termination, exit(1)\n");
  output_written();
  std::exit(1);
}

}  // namespace resmgr
