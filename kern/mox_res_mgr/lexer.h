// Cuts the command text into tokens, with one token of look-ahead.
//
//   start_lexer(" create node-0: ipcbase=5");   // lookahead is T_CREATE
//   match(T_CREATE);                            // now T_NODE
//
// What does not fit is thrown as a syntax_error.
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "kern/mox_res_mgr/buffer_rows.h"

namespace resmgr {

// Every kind of token, in the order of their values, with the word that makes it; none for kinds
// that are no keyword. A row of a buffer has more columns.
#define RESMGR_TOKENS(TOKEN)                          \
  TOKEN(T_CREATE, "create")                           \
  TOKEN(T_CHECK, "check")                             \
  TOKEN(T_DELETE, "delete")                           \
  TOKEN(T_SEARCH, "search")                           \
  TOKEN(T_NODE, "node")                               \
  TOKEN(T_DEVICE, "device")                           \
  TOKEN(T_IPCBASE, "ipcbase")                         \
  RESMGR_BUFFERS(TOKEN)                               \
  TOKEN(T_SIZE, "size")                               \
  TOKEN(T_PATH, "path")                               \
  TOKEN(T_TYPE, "type")                               \
  TOKEN(T_DATA, "data")                               \
  TOKEN(T_LOG, "log")                                 \
  TOKEN(T_INT, "")    /* digits */                    \
  TOKEN(T_STRING, "") /* any other word, or a path */ \
  TOKEN(T_DASH, "")                                   \
  TOKEN(T_DOT, "")                                    \
  TOKEN(T_EQUAL, "")                                  \
  TOKEN(T_COMMA, "")                                  \
  TOKEN(T_COLON, "")                                  \
  TOKEN(T_OPTION, "") /* "--" */                      \
  TOKEN(T_EOF, "")                                    \
  TOKEN(T_ERROR, "") /* before the first token */

#define RESMGR_TOKEN_KIND(kind, ...) kind,
enum token { RESMGR_TOKENS(RESMGR_TOKEN_KIND) };
#undef RESMGR_TOKEN_KIND

#define RESMGR_TOKEN_KEYWORD(kind, keyword, ...) keyword,
inline constexpr const char* tok_keywords[] = {RESMGR_TOKENS(RESMGR_TOKEN_KEYWORD)};
#undef RESMGR_TOKEN_KEYWORD

// Which characters stand in a list, by their code.
constexpr auto set_of(std::string_view characters) {
  std::array<bool, 256> set{};
  for (const char c : characters) set[static_cast<unsigned char>(c)] = true;
  return set;
}

inline constexpr auto blanks = set_of(" \t\r\n");

// Whether a character separates words.
inline bool is_space(char c) {
  return blanks[static_cast<unsigned char>(c)];
}

// "T_CREATE" to "T_ERROR"; null for any other value.
const char* token_name(token kind);

extern std::string in_buf;        // the whole command text
extern std::size_t tok_pos;       // read position in it
extern std::string_view tok_buf;  // text of the token just read, a part of in_buf
extern std::string_view err_buf;  // text that a syntax error shows, a part of in_buf
extern token lookahead;

// The words of a command as one text, each behind one blank.
std::string joined(std::span<char* const> words);

// Takes the text, and its first token for the look-ahead.
void start_lexer(std::string text);

// The next token. Every text yields tokens, and T_EOF at its end.
token gettoken();

// The path behind the "=" of a PATH assignment, in tok_buf: it runs up to a blank, a comma or the
// end, or stands in double quotes. T_EOF when there are only blanks left.
token getstring();

// Steps over a token of the given kind; any other one is a syntax error.
void match(token kind);

// A command that does not fit the grammar, at the look-ahead.
struct syntax_error {
  std::string reason;          // may be empty: the token is of the wrong kind
  std::string not_understood;  // the token's text; a "\n" in two characters behind it: the end
  std::string read;            // the command text up to the last character that was read
  std::size_t token_start;     // position of the token's first character in the command text
};

[[noreturn]] void error(const std::string& reason = "");

}  // namespace resmgr
