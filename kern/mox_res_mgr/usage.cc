#include "kern/mox_res_mgr/usage.h"

#include <cstdio>

namespace resmgr {

const char* prog_name = nullptr;

namespace {

constexpr char grammar[] =
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
  DATABUF = Int64 |  (* Size of data buffer in bytes *)
  NLOGBUF = Int32 |  (* Size of buffer for node-internal log in bytes *)
  TLOGBUF = Int32 |  (* Size of tuple log buffer in bytes *)
  SQLBUF  = Int32 |  (* Size SQL work area in bytes *)
  EVBUF   = Int32;   (* Size of event buffer in bytes *)
<ipc_spec>         ::= IPCBASE = Int32; (* Base for IPC keys, search will start here *)
<device_spec>      ::= DEVICE-  <device_no> .
<device_assignment>::= )"
    R"(
  SIZE    = Int32 |  (* Size in MB *)
  PATH    = <string> (* Path to device *)
<node_no>          ::= Int32
<device_no>        ::= Int32 (* This is a free numbering, not the device ID.*)
<string>           ::= [^. ]+
)";

}  // namespace

void usage() {
  std::printf("Usage: %s <command>\n", prog_name);
  std::fputs(grammar, stdout);
}

}  // namespace resmgr
