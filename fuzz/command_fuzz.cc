// Any command text is parsed or refused: as a CREATE, a CHECK and a DELETE in turn.
#include <cstddef>
#include <cstdint>
#include <string>

#include "kern/mox_res_mgr/lexer.h"
#include "kern/mox_res_mgr/parser.h"
#include "kern/mox_res_mgr/usage.h"
#include "tests/support/throwing_crash.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  resmgr::prog_name = "mox_res_mgr";
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const auto parse : {resmgr::create_operands, resmgr::operands, resmgr::delete_operands}) {
    resmgr::in_buf.assign(reinterpret_cast<const char*>(data), size);
    resmgr::tok_pos = 0;
    resmgr::lookahead = resmgr::gettoken();
    try {
      for (const resmgr::op& record : parse()) record.debug();
    } catch (const RunEnded&) {
      continue;
    }
  }
  return 0;
}
