#include "kern/mox_res_mgr/parser.h"

#include <cstdint>
#include <string>

#include "kern/mox_res_mgr/buffers.h"
#include "kern/mox_res_mgr/lexer.h"
#include "kern/mox_res_mgr/numbers.h"

namespace resmgr {

bool dbug = false;

namespace {

[[noreturn]] void given_twice(const std::string& what) {
  error(what + " already specified");
}

void assign_ipcbase(op& record) {
  match(T_IPCBASE);
  if (record.ipc.ipcbase != 0) given_twice("ipcbase");
  record.ipc.ipcbase = to_key_t();
}

void assign_size(op& record, const buffer& wanted) {
  match(wanted.keyword);
  std::uint32_t& size = record.ipc.size[wanted.offset];
  if (size != 0) given_twice(wanted.name());
  size = to_size_t();
}

// One IPC assignment. Any other token stays the look-ahead, and the caller refuses it.
void node(op& record) {
  if (lookahead == T_IPCBASE) {
    assign_ipcbase(record);
  } else if (const buffer* const wanted = buffer_of(lookahead); wanted != nullptr) {
    assign_size(record, *wanted);
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
  if (getstring() != T_STRING) error("expected path name, found " + std::string(tok_buf));
  device.path = tok_buf;
  lookahead = gettoken();
}

void device(op& record) {
  device_res& device = device_head(record);
  if (lookahead == T_SIZE) {
    match(T_SIZE);
    match(T_EQUAL);
    if (device.size != device_res::no_size) given_twice("device size");
    device.size = to_signed_32();
  } else {
    path_head();
    if (!device.path.empty()) given_twice("device path");
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
  if (lookahead == T_DEVICE) error("device spec not allowed for create");
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
