#include "kern/mox_res_mgr/usage.h"

#include <algorithm>
#include <string>

#include "common/base/printable.h"
#include "kern/mox_res_mgr/buffers.h"
#include "kern/mox_res_mgr/report.h"

namespace resmgr {

const char* prog_name = nullptr;

namespace {

constexpr char commands[] =
    R"(keywords are marked in uppercase below, but are case insignificant

<command> ::= <create> | <check> | <delete>;
<create>  ::= CREATE [--search] <create_spec> [create_spec]...
<check>   ::= CHECK  [--search] <check_spec>  [check_spec]...
<delete>  ::= DELETE            <delete_spec> [delete_spec]...

<delete_spec>      ::= <node_spec> <path_or_base> [, <path_or_base> ]...
<path_or_base>     ::= <ipc_spec> | <device_path_spec>
<device_path_spec> ::= <device_spec>  PATH = <string> (* Path to device *)
<create_spec>      ::= <node_spec> <ipc_assignment> [, <ipc_assignment>]...
<check_spec>       ::= <node_spec> <assignment> [, assignment]...
<node_spec>        ::= NODE-  <node_no> :
<assignment>       ::= <ipc_assignment> | <device_spec> <device_assignment>
<ipc_assignment>   ::= )"
    R"(
  <ipc_spec> |
)";

constexpr char values[] =
    R"(<ipc_spec>         ::= IPCBASE = Int32; (* Base for IPC keys, search will start here *)
<device_spec>      ::= DEVICE-  <device_no> .
<device_assignment>::= )"
    R"(
  SIZE    = Int32 |  (* Size in MB *)
  PATH    = <string> (* Path to device *)
<node_no>          ::= Int32
<device_no>        ::= Int32 (* This is a free numbering, not the device ID.*)
<string>           ::= [^. ]+
)";

std::string upper_case(std::string word) {
  for (char& c : word) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return word;
}

void describe_buffers() {
  const auto last = std::ranges::find_if(buffers_by_place.rbegin(), buffers_by_place.rend(),
                                         &buffer::can_be_given);
  for (const buffer& row : buffers_by_place) {
    if (!row.can_be_given()) continue;
    say("  %-7s = %s%s (* %s *)\n", upper_case(row.name()).c_str(), row.type,
        &row == &*last ? ";  " : " | ", row.meaning);
  }
}

}  // namespace

void usage() {
  say("Usage: %s <command>\n", printable(prog_name).c_str());
  say("%s", commands);
  describe_buffers();
  say("%s", values);
}

}  // namespace resmgr
