// Any command text is parsed or refused: as a CREATE, a CHECK and a DELETE in turn.
#include <cstddef>
#include <cstdint>
#include <string>

#include "kern/mox_res_mgr/lexer.h"
#include "kern/mox_res_mgr/parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  for (const auto parse : {resmgr::create_operands, resmgr::operands, resmgr::delete_operands}) {
    resmgr::start_lexer({reinterpret_cast<const char*>(data), size});
    try {
      for (const resmgr::op& record : parse()) record.debug();
    } catch (const resmgr::syntax_error&) {
      continue;
    }
  }
  return 0;
}
