// Command text to tokens.
#include "kern/mox_res_mgr/lexer.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace resmgr {
namespace {

std::string tokens(const std::string& text) {
  std::string result;
  for (start_lexer(text); lookahead != T_EOF; lookahead = gettoken()) {
    if (!result.empty()) result += ' ';
    result += token_name(lookahead);
    if (lookahead == T_INT || lookahead == T_STRING) result += "(" + tok_buf + ")";
  }
  return result;
}

TEST(Lexer, CutsTextIntoTokens) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"\r\n\t create\rcheck\tdelete\nsearch", "T_CREATE T_CHECK T_DELETE T_SEARCH"},
      {"create\vcheck\fdelete", "T_STRING(create\vcheck\fdelete)"},
      {"node-0:", "T_NODE T_DASH T_INT(0) T_COLON"},
      {"device-1.path=", "T_DEVICE T_DASH T_INT(1) T_DOT T_PATH T_EQUAL"},
      {"--search -- search", "T_OPTION T_SEARCH T_OPTION T_SEARCH"},
      {"---", "T_OPTION T_DASH"},
      {"-", "T_DASH"},
      {"ipcbase=0012", "T_IPCBASE T_EQUAL T_INT(0012)"},
      {"12abc 0x10 100M", "T_INT(12) T_STRING(abc) T_INT(0) T_STRING(x10) T_INT(100) T_STRING(M)"},
      {"CREATE Create creates", "T_STRING(CREATE) T_STRING(Create) T_STRING(creates)"},
      {"databuf nlogbuf tlogbuf dictbuf sqlbuf evbuf",
       "T_DATABUF T_NLOGBUF T_TLOGBUF T_DICTBUF T_SQLBUF T_EVBUF"},
      {"size path type data log", "T_SIZE T_PATH T_TYPE T_DATA T_LOG"},
      {"a/b;\"c\" \xff\x01,", "T_STRING(a/b;\"c\") T_STRING(\xff\x01) T_COMMA"},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(tokens(text), expected) << text;
  EXPECT_EQ(token_name(static_cast<token>(T_ERROR + 1)), nullptr);
}

TEST(Lexer, ReadsPathsAsTheyStand) {
  const struct {
    const char* text;
    token kind;
    const char* path;
    const char* rest;
  } cases[] = {
      {"/dev/dsk/disk3,size=10", T_STRING, "/dev/dsk/disk3", ",size=10"},
      {" /a.b-c:d=e f", T_STRING, "/a.b-c:d=e", "f"},
      {"\"my disk\",x", T_STRING, "my disk", ",x"},
      {"\"\"x", T_STRING, "", "x"},
      {"\"abc", T_STRING, "ab", ""},
      {"\"", T_STRING, "", ""},
      {"  ,x", T_STRING, "", ",x"},
      {"   ", T_EOF, "", ""},
      {"", T_STRING, "=", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    start_lexer(std::string("=") + c.text);
    EXPECT_EQ(getstring(), c.kind);
    EXPECT_EQ(tok_buf, c.path);
    EXPECT_EQ(in_buf.substr(tok_pos), c.rest);
  }
}

}  // namespace
}  // namespace resmgr
