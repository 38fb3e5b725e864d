// Cuts the command text into tokens, with one token of look-ahead, and reports syntax errors.
//
//   in_buf = " create node-0: ipcbase=5";
//   lookahead = gettoken();           // T_CREATE
//   match(T_CREATE);                  // now T_NODE
#pragma once

#include <cstddef>
#include <string>

namespace resmgr {

enum token {
  T_CREATE,
  T_CHECK,
  T_DELETE,
  T_SEARCH,
  T_NODE,
  T_DEVICE,
  T_IPCBASE,
  T_DATABUF,
  T_NLOGBUF,
  T_TLOGBUF,
  T_DICTBUF,
  T_SQLBUF,
  T_EVBUF,
  T_SIZE,
  T_PATH,
  T_TYPE,
  T_DATA,
  T_LOG,
  T_INT,     // a run of decimal digits
  T_STRING,  // any other word, or a path
  T_DASH,
  T_DOT,
  T_EQUAL,
  T_COMMA,
  T_COLON,
  T_OPTION,  // "--"
  T_EOF,
  T_ERROR,  // before the first token
};

extern std::string in_buf;   // the whole command text
extern std::size_t tok_pos;  // read position in it
extern std::string tok_buf;  // text of the token just read
extern std::string err_buf;  // text that a syntax error shows
extern token lookahead;

// "T_CREATE" to "T_ERROR"; null for any other value.
const char* token_name(token kind);

// The next token. Every text yields tokens, and T_EOF at its end.
token gettoken();

// The path behind the "=" of a PATH assignment, in tok_buf: it runs up to a blank, a comma or the
// end, or stands in double quotes. T_EOF when there are only blanks left.
token getstring();

// Steps over a token of the given kind; any other one is a syntax error.
void match(token kind);

// Prints what was not understood, the text read so far with a caret under its last character, and
// the usage text, and ends the process with status 1.
[[noreturn]] void error();

}  // namespace resmgr
