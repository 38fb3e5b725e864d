// Command text to records, and every way to get them wrong.
#include "kern/mox_res_mgr/parser.h"

#include <gtest/gtest.h>

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
std::string records(const std::string& text) {
  testing::internal::CaptureStdout();
  for (const op& record : parsed(operands, text)) record.debug();
  return testing::internal::GetCapturedStdout();
}

TEST(Parser, MergesSpecificationsByNodeAndDevice) {
  const std::string dict = " dictbuf 4194304 ";
  EXPECT_EQ(records("node-7: ipcbase=10 node-1: databuf=1 node-7: device-0.path=/d.e/f, "
                    "device-3.size=6, device-0.size=5,nlogbuf=2,tlogbuf=3"),
            "node 7\nipcbase 10 databuf 0 nlogbuf 2 tlogbuf 3 sqlbuf 0" + dict +
                "evbuf 0\ndevice 0 size 5 path /d.e/f type \ndevice 3 size 6 path  type \n"
                "node 1\nipcbase 0 databuf 1 nlogbuf 0 tlogbuf 0 sqlbuf 0" +
                dict + "evbuf 0\n");
}

TEST(Parser, TakesNumbersWithTheirOldLimits) {
  const std::pair<const char*, const char*> cases[] = {
      {"node-4294967295: ", "node 4294967295\n"},
      {"node-42949672959:", "node 4294967295\n"},
      {"node-0: ipcbase=0002147483647", "ipcbase 2147483647 "},
      {"node-0: ipcbase=9999999999", "ipcbase 1410065407 "},
      {"node-0: evbuf=6442450943", "evbuf 2147483647\n"},
      {"node-0: device-0.size=99999999999999999999999", "size 2147483647 "}};
  for (const auto& [text, taken] : cases) {
    EXPECT_NE(records(text).find(taken), std::string::npos) << text;
  }
}

TEST(Parser, RefusesWithTheReasonAndThePlace) {
  const parse create = create_operands;
  const struct {
    parse parser;
    std::string read, rest, token, reason;  // `read` goes up to the caret
  } cases[] = {
      {create, "node-4294967296", ":", "4294967296", "number 4294967296 is too big"},
      {create, "node-0: ipcbase=2147483648", "", "2147483648", "number 2147483648 is too big"},
      {create, "node-0: databuf=2147483648", "", "2147483648", "number 2147483648 is too big"},
      {create, "node-0: ipcbase=0, ipcbase=1, ipcbase=", "2", "=", "ipcbase already specified"},
      {create, "node-0\v", ":", "\v", ""},
      {create, "node-0: evbuf=100M\xff\x01", ",", "M\xff\x01", ""},
      {operands, "node-0: dictbuf", "=5", "dictbuf", ""},
      {operands, "\r\n\tnode-0:ipcbase=0--", "-5", "--", ""},
      {operands, "node-0: device-0.size=1, device-0.size=2", "", "2",
       "device size already specified"},
      {operands, "node-0: device-0.path=/a, device-0.path=", "/b", "=",
       "device path already specified"},
      {operands, "node-0: device-0.path=  ", "", "=", "expected path name, found "},
      {delete_operands, "node-0: device-0.size", "=1", "size", ""},
      {delete_operands, "--", "search node-0:", "--", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.read + c.rest);
    try {
      parsed(c.parser, c.read + c.rest);
      ADD_FAILURE() << "accepted";
    } catch (const syntax_error& mistake) {
      EXPECT_EQ(mistake.reason, c.reason);
      EXPECT_EQ(mistake.not_understood, c.token + (c.rest.empty() ? "\\n" : ""));
      EXPECT_EQ(mistake.read, c.read);
      EXPECT_EQ((c.read + c.rest).substr(mistake.token_start, c.token.size()), c.token);
    }
  }
}

TEST(Parser, ReadsPathsAsTheyStand) {
  const std::pair<std::string, std::string> cases[] = {
      {" /a.b-c:d=e node-1:ipcbase=5", "/a.b-c:d=e"},
      {"\"my disk\",device-0.size=1", "my disk"},
      {"\"abc", "ab"},
      {"", "="},
      {" , device-0.path=/second", "/second"},
  };
  for (const auto& [text, path] : cases) {
    const op_list ops = parsed(operands, "node-0: device-0.path=" + text);
    EXPECT_EQ(ops.begin()->devices.begin()->path, path) << text;
  }
}

}  // namespace
}  // namespace resmgr
