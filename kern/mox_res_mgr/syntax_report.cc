#include "kern/mox_res_mgr/syntax_report.h"

#include <algorithm>

#include "common/base/printable.h"
#include "kern/mox_res_mgr/report.h"
#include "kern/mox_res_mgr/usage.h"

namespace resmgr {

void crash(const syntax_error& mistake) {
  if (!mistake.reason.empty()) say("Error: %s\n", mistake.reason.c_str());
  say("Error: %s\n", printable(mistake.not_understood).c_str());
  const std::string read = printable(mistake.read);
  say("%s\n", read.c_str());
  // An escaped character is wider than itself.
  const std::size_t columns = std::max<std::size_t>(mistake.read.size(), 1) - 1;
  say("%s^\n", std::string(columns + read.size() - mistake.read.size(), ' ').c_str());
  usage();
  crash();
}

}  // namespace resmgr
