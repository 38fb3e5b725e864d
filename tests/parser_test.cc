// Node specifications to records, and every way to get them wrong.
#include "kern/mox_res_mgr/parser.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <utility>

#include "kern/mox_res_mgr/lexer.h"

namespace resmgr {
namespace {

using parse = op_list (*)();

op_list parsed(parse parser, const std::string& text) {
  start_lexer(text);
  return parser();
}

// The records as op::debug prints them.
std::string records(parse parser, const std::string& text) {
  testing::internal::CaptureStdout();
  for (const op& record : parsed(parser, text)) record.debug();
  return testing::internal::GetCapturedStdout();
}

TEST(Parser, MergesSpecificationsByNodeAndDevice) {
  const std::string dict = " dictbuf 4194304 ";
  EXPECT_EQ(
      records(create_operands, "node-0: ipcbase=100, evbuf=1000, sqlbuf=2000"),
      "node 0\nipcbase 100 databuf 0 nlogbuf 0 tlogbuf 0 sqlbuf 2000" + dict + "evbuf 1000\n");
  EXPECT_EQ(records(operands,
                    "node-7: ipcbase=10 node-1: databuf=1 node-7: device-0.path=/d.e/f, "
                    "device-3.size=6, device-0.size=5,nlogbuf=2,tlogbuf=3"),
            "node 7\nipcbase 10 databuf 0 nlogbuf 2 tlogbuf 3 sqlbuf 0" + dict +
                "evbuf 0\ndevice 0 size 5 path /d.e/f type \ndevice 3 size 6 path  type \n"
                "node 1\nipcbase 0 databuf 1 nlogbuf 0 tlogbuf 0 sqlbuf 0" +
                dict + "evbuf 0\n");
  EXPECT_EQ(records(delete_operands, "node-0: device-1.path=/a, device-1.path=/b, ipcbase=0"),
            "node 0\nipcbase 0 databuf 0 nlogbuf 0 tlogbuf 0 sqlbuf 0" + dict +
                "evbuf 0\ndevice 1 size -1 path /b type \n");
}

TEST(Parser, TakesNumbersWithTheirOldLimits) {
  const std::pair<const char*, const char*> cases[] = {
      {"node-4294967295:", "node 4294967295\n"},
      {"node-42949672959:", "node 4294967295\n"},
      {"node-0: ipcbase=0002147483647", "ipcbase 2147483647 "},
      {"node-0: ipcbase=9999999999", "ipcbase 1410065407 "},
      {"node-0: evbuf=2147483647", "evbuf 2147483647\n"},
      {"node-0: evbuf=6442450943", "evbuf 2147483647\n"},
      {"node-0: device-0.size=0", "size 0 "},
      {"node-0: device-0.size=99999999999999999999999", "size 2147483647 "}};
  for (const auto& [text, taken] : cases) {
    EXPECT_NE(records(operands, text).find(taken), std::string::npos) << text;
  }
}

TEST(Parser, RefusesWithTheReasonAndThePlace) {
  const parse create = create_operands;
  const parse del = delete_operands;
  const struct {
    parse parser;
    std::string read;  // up to the caret
    std::string rest;
    std::string token;
    std::string reason;
  } cases[] = {
      {create, "node-4294967296", ":", "4294967296", "number 4294967296 is too big"},
      {create, "node-0: ipcbase=2147483648", "", "2147483648", "number 2147483648 is too big"},
      {create, "node-0: databuf=2147483648", " ", "2147483648", "number 2147483648 is too big"},
      {create, "node-0: ipcbase=1, ipcbase=", "2", "=", "ipcbase already specified"},
      {create, "node-0: databuf=1, databuf=", "2", "=", "databuf already specified"},
      {create, "node-0: device", "-0.path=/x", "device", "device spec not allowed for create"},
      {create, "NODE", "-0: ipcbase=1", "NODE", ""},
      {create, "node 0", ":", "0", ""},
      {create, "node-x", ":", "x", ""},
      {create, "node-0 ipcbase", "", "ipcbase", ""},
      {create, "", "", "", ""},
      {create, "node-0: 5", " ", "5", ""},
      {operands, "node-0: dictbuf", "=5", "dictbuf", ""},
      {operands, "node-0: ipcbase=-", "5", "-", ""},
      {operands, "node-0: device-0.type", "=x", "type", ""},
      {operands, "node-0: device-0.size=1, device-0.size=2", "", "2",
       "device size already specified"},
      {operands, "node-0: device-0.path=/a, device-0.path=", "/b", "=",
       "device path already specified"},
      {operands, "node-0: device-0.path=  ", "", "=", "expected path name, found "},
      {del, "node-0: device-0.size", "=1", "size", ""},
      {del, "node-0: databuf", "=1", "databuf", ""},
      {del, "--", "search node-0:", "--", ""},
  };
  for (const auto& c : cases) {
    const std::string text = c.read + c.rest;
    SCOPED_TRACE(text);
    try {
      parsed(c.parser, text);
      ADD_FAILURE() << "accepted";
    } catch (const syntax_error& mistake) {
      EXPECT_EQ(mistake.reason, c.reason);
      EXPECT_EQ(mistake.not_understood, c.token + (c.rest.empty() ? "\\n" : ""));
      EXPECT_EQ(mistake.read, c.read);
      EXPECT_EQ(text.substr(mistake.token_start, c.token.size()), c.token);
    }
  }
}

TEST(Parser, TakesASecondValueAfterZeroAndAfterAnEmptyPath) {
  EXPECT_EQ(parsed(create_operands, "node-0: ipcbase=0, ipcbase=2").begin()->ipc.ipcbase, 2);
  const op_list ops = parsed(operands, "node-0: device-0.path= , device-0.path=");
  EXPECT_EQ(ops.begin()->devices.begin()->path, "=");
}

// Processor time of a command of devices whose numbers are multiples of `step`.
std::clock_t parsing_time(std::uint64_t step) {
  constexpr std::uint64_t devices = 50000;
  std::string text = "node-0: ";
  for (std::uint64_t i = 0; i < devices; ++i) {
    text += "device-" + std::to_string(i * step) + ".size=1, ";
  }
  const std::clock_t start = std::clock();
  EXPECT_EQ(parsed(operands, text).begin()->devices.size(), devices);
  return std::clock() - start;
}

// The step is the number of buckets that the library's hash tables have for so many entries.
TEST(Parser, NumbersChosenToCollideCostNoMoreThanOthers) {
  EXPECT_LT(parsing_time(85229), 10 * parsing_time(1));
}

}  // namespace
}  // namespace resmgr
