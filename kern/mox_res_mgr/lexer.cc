#include "kern/mox_res_mgr/lexer.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

namespace resmgr {

std::string in_buf;
std::size_t tok_pos = 0;
std::string_view tok_buf;
std::string_view err_buf;
token lookahead = T_ERROR;

namespace {

#define RESMGR_TOKEN_NAME(kind, ...) #kind,
constexpr const char* tok_names[] = {RESMGR_TOKENS(RESMGR_TOKEN_NAME)};
#undef RESMGR_TOKEN_NAME

std::size_t tok_start = 0;  // position of the token just read

bool eof() {
  return tok_pos >= in_buf.size();
}

char get_char() {
  return eof() ? '\0' : in_buf[tok_pos++];
}

void unget_char() {
  if (tok_pos > 0) --tok_pos;
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

constexpr auto ends_of_words = set_of(" \t\r\n.-=,:");

bool ends_word(char c) {
  return ends_of_words[static_cast<unsigned char>(c)];
}

// The first character that is no blank, in *c; false when only blanks are left.
bool skip_blanks(char* c) {
  *c = get_char();
  while (is_space(*c)) {
    if (eof()) return false;
    *c = get_char();
  }
  return true;
}

token word_kind(std::string_view word) {
  // Long descriptions are mostly keywords: the first character alone tells most of them apart.
  const auto* const keyword = std::ranges::find_if(
      tok_keywords, [word](const char* one) { return *one == word[0] && word == one; });
  return keyword == std::end(tok_keywords) ? T_STRING : static_cast<token>(keyword - tok_keywords);
}

// The text from `start` up to the read position.
std::string_view read_since(std::size_t start) {
  return {in_buf.data() + start, tok_pos - start};
}

// Steps over the characters up to the first one that `ends`.
template <class Ends>
void read_up_to(Ends ends) {
  const auto end =
      std::find_if(in_buf.cbegin() + static_cast<std::ptrdiff_t>(tok_pos), in_buf.cend(), ends);
  tok_pos = static_cast<std::size_t>(end - in_buf.cbegin());
}

token read_number() {
  read_up_to([](char c) { return !is_digit(c); });
  return T_INT;
}

token read_word() {
  read_up_to(ends_word);
  return word_kind(read_since(tok_start));
}

token read_dash() {
  if (eof()) return T_DASH;
  if (get_char() == '-') return T_OPTION;
  unget_char();
  return T_DASH;
}

token read_token(char first) {
  switch (first) {
    case ',':
      return T_COMMA;
    case '.':
      return T_DOT;
    case ':':
      return T_COLON;
    case '=':
      return T_EQUAL;
    case '-':
      return read_dash();
    default:
      return is_digit(first) ? read_number() : read_word();
  }
}

// An unterminated quotation loses its last character: the end of the text is noticed only when that
// character has been read.
void read_quoted() {
  const std::size_t start = tok_pos;
  char c = get_char();
  while (!eof() && c != '"') c = get_char();
  tok_buf = read_since(start);
  if (!tok_buf.empty()) tok_buf.remove_suffix(1);
}

// A blank behind it is read as well.
void read_unquoted() {
  const std::size_t start = tok_pos;
  read_up_to([](char c) { return c == ',' || is_space(c); });
  tok_buf = read_since(start);
  if (!eof() && is_space(in_buf[tok_pos])) ++tok_pos;
}

}  // namespace

const char* token_name(token kind) {
  return kind >= T_CREATE && kind <= T_ERROR ? tok_names[kind] : nullptr;
}

std::string joined(std::span<char* const> words) {
  std::size_t length = 0;
  for (const char* const word : words) length += 1 + std::strlen(word);
  std::string text;
  text.reserve(length);
  for (const char* const word : words) text.append(" ").append(word);
  return text;
}

void start_lexer(std::string text) {
  in_buf = std::move(text);
  tok_pos = 0;
  err_buf = {};
  lookahead = gettoken();
}

token gettoken() {
  tok_buf = {};
  tok_start = in_buf.size();
  if (eof()) {
    err_buf = tok_buf;
    return T_EOF;
  }
  char first = '\0';
  if (!skip_blanks(&first)) return T_EOF;
  tok_start = tok_pos - 1;
  const token kind = read_token(first);
  err_buf = tok_buf = read_since(tok_start);
  return kind;
}

token getstring() {
  // At the very end the "=" stays in tok_buf, and becomes the path.
  if (eof()) return T_STRING;
  tok_buf = {};
  char first = '\0';
  if (!skip_blanks(&first)) return T_EOF;
  if (first == '"') {
    read_quoted();
  } else {
    unget_char();
    read_unquoted();
  }
  return T_STRING;
}

void match(token kind) {
  if (lookahead != kind) error();
  lookahead = gettoken();
}

void error(const std::string& reason) {
  const std::string not_understood = std::string(err_buf) + (eof() ? "\\n" : "");
  throw syntax_error{reason, not_understood, in_buf.substr(0, tok_pos), tok_start};
}

}  // namespace resmgr
