#include "tests/support/throwing_crash.h"

namespace resmgr {

void crash() {
  throw RunEnded();
}

}  // namespace resmgr
