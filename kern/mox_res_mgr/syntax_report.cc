#include "kern/mox_res_mgr/syntax_report.h"

#include <algorithm>

#include "common/base/printable.h"
#include "kern/mox_res_mgr/report.h"
#include "kern/mox_res_mgr/usage.h"

namespace resmgr {

std::string describe(const syntax_error& mistake) {
  const auto error_line = [](const std::string& text) { return "Error: " + text + "\n"; };
  const std::string read = printable(mistake.read);
  // An escaped character is wider than itself.
  const std::size_t columns = std::max<std::size_t>(mistake.read.size(), 1) - 1;
  const std::string caret(columns + read.size() - mistake.read.size(), ' ');
  return (mistake.reason.empty() ? "" : error_line(mistake.reason)) +
         error_line(printable(mistake.not_understood)) + read + "\n" + caret + "^\n";
}

void crash(const syntax_error& mistake) {
  say("%s", describe(mistake).c_str());
  usage();
  crash();
}

}  // namespace resmgr
