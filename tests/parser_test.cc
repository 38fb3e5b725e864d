// Node specifications to records, and every way to get them wrong.
#include "kern/mox_res_mgr/parser.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "kern/mox_res_mgr/lexer.h"
#include "tests/support/throwing_crash.h"

namespace resmgr {
namespace {

using parse = op_list (*)();

op_list parsed(parse parser, const std::string& text) {
  in_buf = text;
  tok_pos = 0;
  lookahead = gettoken();
  return parser();
}

// The records as op::debug prints them, or the first lines of the syntax-error report.
std::string result(parse parser, const std::string& text) {
  testing::internal::CaptureStdout();
  try {
    for (const op& record : parsed(parser, text)) record.debug();
  } catch (const RunEnded&) {
    const std::string report = testing::internal::GetCapturedStdout();
    return report.substr(0, report.find("\nUsage: "));
  }
  return testing::internal::GetCapturedStdout();
}

TEST(Parser, MergesSpecificationsByNodeAndDevice) {
  const std::string dict = " dictbuf 4194304 ";
  EXPECT_EQ(
      result(create_operands, "node-0: ipcbase=100, evbuf=1000, sqlbuf=2000"),
      "node 0\nipcbase 100 databuf 0 nlogbuf 0 tlogbuf 0 sqlbuf 2000" + dict + "evbuf 1000\n");
  EXPECT_EQ(result(operands,
                   "node-7: ipcbase=10 node-1: databuf=1 node-7: device-0.path=/d.e/f, "
                   "device-3.size=6, device-0.size=5,nlogbuf=2,tlogbuf=3"),
            "node 7\nipcbase 10 databuf 0 nlogbuf 2 tlogbuf 3 sqlbuf 0" + dict +
                "evbuf 0\ndevice 0 size 5 path /d.e/f type \ndevice 3 size 6 path  type \n"
                "node 1\nipcbase 0 databuf 1 nlogbuf 0 tlogbuf 0 sqlbuf 0" +
                dict + "evbuf 0\n");
  EXPECT_EQ(result(delete_operands, "node-0: device-1.path=/a, device-1.path=/b, ipcbase=0"),
            "node 0\nipcbase 0 databuf 0 nlogbuf 0 tlogbuf 0 sqlbuf 0" + dict +
                "evbuf 0\ndevice 1 size -1 path /b type \n");
}

TEST(Parser, TakesNumbersWithTheirOldLimits) {
  const std::pair<const char*, std::uint32_t> nodes[] = {
      {"4294967295", 4294967295U}, {"42949672959", 4294967295U}, {"0007", 7}};
  for (const auto& [digits, number] : nodes) {
    EXPECT_EQ(parsed(create_operands, "node-" + std::string(digits) + ":").begin()->node, number);
  }
  const std::pair<const char*, std::int32_t> keys[] = {
      {"2147483647", 2147483647}, {"9999999999", 1410065407}, {"0", 0}};
  for (const auto& [digits, key] : keys) {
    const op_list ops = parsed(create_operands, "node-0: ipcbase=" + std::string(digits));
    EXPECT_EQ(ops.begin()->ipc.ipcbase, key);
  }
  const std::pair<const char*, std::uint32_t> sizes[] = {{"2147483647", 2147483647},
                                                         {"6442450943", 2147483647}};
  for (const auto& [digits, size] : sizes) {
    const op_list ops = parsed(create_operands, "node-0: evbuf=" + std::string(digits));
    EXPECT_EQ(ops.begin()->ipc.size[EVBUF], size);
  }
  const std::pair<const char*, std::int32_t> megabytes[] = {
      {"2147483648", 2147483647}, {"99999999999999999999999", 2147483647}, {"0", 0}};
  for (const auto& [digits, size] : megabytes) {
    const op_list ops = parsed(operands, "node-0: device-0.size=" + std::string(digits));
    EXPECT_EQ(ops.begin()->devices.begin()->size, size);
  }
}

TEST(Parser, RefusesWithTheReasonAndThePlace) {
  const struct {
    parse parser;
    const char* text;
    const char* report;
  } cases[] = {
      {create_operands, "node-4294967296:",
       "Error: number 4294967296 is too big\nError: 4294967296\nnode-4294967296\n"
       "              ^"},
      {create_operands, "node-0: ipcbase=2147483648",
       "Error: number 2147483648 is too big\nError: 2147483648\\n\nnode-0: ipcbase=2147483648\n"
       "                         ^"},
      {create_operands, "node-0: databuf=2147483648 ",
       "Error: number 2147483648 is too big\nError: 2147483648\nnode-0: databuf=2147483648\n"
       "                         ^"},
      {create_operands, "node-0: ipcbase=1, ipcbase=2",
       "Error: ipcbase already specified\nError: =\nnode-0: ipcbase=1, ipcbase=\n"
       "                          ^"},
      {create_operands, "node-0: databuf=1, databuf=2",
       "Error: databuf already specified\nError: =\nnode-0: databuf=1, databuf=\n"
       "                          ^"},
      {create_operands, "node-0: device-0.path=/x",
       "Error: device spec not allowed for create\nError: device\nnode-0: device\n"
       "             ^"},
      {operands, "node-0: dictbuf=5", "Error: dictbuf\nnode-0: dictbuf\n              ^"},
      {operands, "node-0: ipcbase=-5", "Error: -\nnode-0: ipcbase=-\n                ^"},
      {operands, "node-0: device-0.size=1, device-0.size=2",
       "Error: device size already specified\nError: 2\\n\n"
       "node-0: device-0.size=1, device-0.size=2\n                                       ^"},
      {operands, "node-0: device-0.path=/a, device-0.path=/b",
       "Error: device path already specified\nError: =\nnode-0: device-0.path=/a, device-0.path=\n"
       "                                       ^"},
      {operands, "node-0: device-0.path=  ",
       "Error: expected path name, found \nError: =\\n\nnode-0: device-0.path=  \n"
       "                       ^"},
      {operands, "node-0: device-0.type=x",
       "Error: type\nnode-0: device-0.type\n"
       "                    ^"},
      {delete_operands, "node-0: device-0.size=1",
       "Error: size\nnode-0: device-0.size\n"
       "                    ^"},
      {delete_operands, "node-0: databuf=1", "Error: databuf\nnode-0: databuf\n              ^"},
      {delete_operands, "--search node-0:", "Error: --\n--\n ^"},
      {create_operands, "NODE-0: ipcbase=1", "Error: NODE\nNODE\n   ^"},
      {create_operands, "node 0:", "Error: 0\nnode 0\n     ^"},
      {create_operands, "node-0 ipcbase", "Error: ipcbase\\n\nnode-0 ipcbase\n             ^"},
      {create_operands, "node-x:", "Error: x\nnode-x\n     ^"},
      {create_operands, "", "Error: \\n\n\n^"},
  };
  for (const auto& c : cases) EXPECT_EQ(result(c.parser, c.text), c.report) << c.text;
  // "Already specified" means not 0, and an empty path is none.
  EXPECT_EQ(parsed(create_operands, "node-0: ipcbase=0, ipcbase=2").begin()->ipc.ipcbase, 2);
  const op_list ops = parsed(operands, "node-0: device-0.path= , device-0.path=");
  EXPECT_EQ(ops.begin()->devices.begin()->path, "=");
}

}  // namespace
}  // namespace resmgr
