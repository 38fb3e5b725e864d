#include "kern/mox_res_mgr/parser.h"

#include <cstdint>
#include <cstdio>
#include <string>

#include "kern/mox_res_mgr/lexer.h"
#include "kern/mox_res_mgr/numbers.h"

namespace resmgr {

bool dbug = false;

namespace {

[[noreturn]] void refuse(const char* message) {
  std::printf("Error: %s\n", message);
  error();
}

void assign_ipcbase(op& node) {
  match(T_IPCBASE);
  if (node.ipc.ipcbase != 0) refuse("ipcbase already specified");
  node.ipc.ipcbase = to_key_t();
}

void assign_size(op& node, token keyword, key_offset offset, const char* given_twice) {
  match(keyword);
  if (node.ipc.size[offset] != 0) refuse(given_twice);
  node.ipc.size[offset] = to_size_t();
}

// One IPC assignment. Anything else is left for the caller to stumble over.
void node(op& record) {
  switch (lookahead) {
    case T_IPCBASE:
      return assign_ipcbase(record);
    case T_DATABUF:
      return assign_size(record, T_DATABUF, DATABUF, "databuf already specified");
    case T_NLOGBUF:
      return assign_size(record, T_NLOGBUF, NLOGBUF, "nlogbuf already specified");
    case T_TLOGBUF:
      return assign_size(record, T_TLOGBUF, TLOGBUF, "tlogbuf already specified");
    case T_SQLBUF:
      return assign_size(record, T_SQLBUF, SQLBUF, "sqlbuf already specified");
    case T_EVBUF:
      return assign_size(record, T_EVBUF, EVBUF, "evbuf already specified");
    default:
      return;
  }
}

void delete_node(op& record) {
  if (lookahead == T_IPCBASE) assign_ipcbase(record);
}

device_res& device_head(op& record) {
  match(T_DEVICE);
  match(T_DASH);
  device_res& device = record.devices.of(to_unsigned_32());
  match(T_DOT);
  return device;
}

// From the look-ahead PATH up to the "=", behind which the path is read as it stands.
void path_head() {
  match(T_PATH);
  if (lookahead != T_EQUAL) error();
}

void read_path(device_res& device) {
  if (getstring() != T_STRING) {
    std::printf("Error: expected path name, found %s\n", tok_buf.c_str());
    error();
  }
  device.path = tok_buf;
  lookahead = gettoken();
}

void device(op& record) {
  device_res& device = device_head(record);
  if (lookahead == T_SIZE) {
    match(T_SIZE);
    match(T_EQUAL);
    if (device.size != device_res::no_size) refuse("device size already specified");
    device.size = to_signed_32();
  } else {
    path_head();
    if (!device.path.empty()) refuse("device path already specified");
    read_path(device);
  }
}

void delete_device(op& record) {
  device_res& device = device_head(record);
  path_head();
  read_path(device);
}

void check_assignment(op& record) {
  lookahead == T_DEVICE ? device(record) : node(record);
}

void create_assignment(op& record) {
  if (lookahead == T_DEVICE) refuse("device spec not allowed for create");
  node(record);
}

void delete_assignment(op& record) {
  lookahead == T_DEVICE ? delete_device(record) : delete_node(record);
}

using assignment = void (*)(op&);

void operand(op_list& ops, assignment assign) {
  match(T_NODE);
  match(T_DASH);
  op& record = ops.of(to_unsigned_32());
  match(T_COLON);
  assign(record);
  while (lookahead == T_COMMA) {
    match(T_COMMA);
    assign(record);
  }
}

op_list specifications(assignment assign) {
  op_list ops;
  do {
    operand(ops, assign);
  } while (lookahead != T_EOF);
  if (dbug) {
    for (const op& record : ops) record.debug();
  }
  return ops;
}

}  // namespace

op_list operands() {
  return specifications(check_assignment);
}

op_list create_operands() {
  return specifications(create_assignment);
}

op_list delete_operands() {
  return specifications(delete_assignment);
}

}  // namespace resmgr
