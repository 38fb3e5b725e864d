#include "kern/mox_res_mgr/lexer.h"

#include <cstdio>
#include <iterator>
#include <string_view>
#include <unordered_map>

#include "kern/mox_res_mgr/report.h"
#include "kern/mox_res_mgr/usage.h"

namespace resmgr {

std::string in_buf;
std::size_t tok_pos = 0;
std::string tok_buf;
std::string err_buf;
token lookahead = T_ERROR;

namespace {

constexpr const char* tok_names[] = {
    "T_CREATE",  "T_CHECK",   "T_DELETE",  "T_SEARCH",  "T_NODE",   "T_DEVICE", "T_IPCBASE",
    "T_DATABUF", "T_NLOGBUF", "T_TLOGBUF", "T_DICTBUF", "T_SQLBUF", "T_EVBUF",  "T_SIZE",
    "T_PATH",    "T_TYPE",    "T_DATA",    "T_LOG",     "T_INT",    "T_STRING", "T_DASH",
    "T_DOT",     "T_EQUAL",   "T_COMMA",   "T_COLON",   "T_OPTION", "T_EOF",    "T_ERROR"};
static_assert(std::size(tok_names) == T_ERROR + 1);

bool eof() {
  return tok_pos >= in_buf.size();
}

char get_char() {
  return eof() ? '\0' : in_buf[tok_pos++];
}

void unget_char() {
  if (tok_pos > 0) --tok_pos;
}

bool is_space(int c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

bool ends_word(char c) {
  return is_space(c) || std::string_view(".-=,:").find(c) != std::string_view::npos;
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

token word_kind(const std::string& word) {
  static const std::unordered_map<std::string_view, token> keywords = {
      {"create", T_CREATE},   {"check", T_CHECK},     {"delete", T_DELETE},
      {"search", T_SEARCH},   {"ipcbase", T_IPCBASE}, {"databuf", T_DATABUF},
      {"nlogbuf", T_NLOGBUF}, {"tlogbuf", T_TLOGBUF}, {"dictbuf", T_DICTBUF},
      {"sqlbuf", T_SQLBUF},   {"evbuf", T_EVBUF},     {"size", T_SIZE},
      {"path", T_PATH},       {"type", T_TYPE},       {"node", T_NODE},
      {"device", T_DEVICE},   {"log", T_LOG},         {"data", T_DATA}};
  const auto keyword = keywords.find(word);
  return keyword == keywords.end() ? T_STRING : keyword->second;
}

token read_number() {
  while (!eof()) {
    const char c = get_char();
    if (!is_digit(c)) {
      unget_char();
      break;
    }
    tok_buf += c;
  }
  return T_INT;
}

token read_word() {
  while (!eof()) {
    const char c = get_char();
    if (ends_word(c)) {
      unget_char();
      break;
    }
    tok_buf += c;
  }
  return word_kind(tok_buf);
}

token read_dash() {
  if (eof()) return T_DASH;
  if (get_char() == '-') {
    tok_buf += '-';
    return T_OPTION;
  }
  unget_char();
  return T_DASH;
}

token read_token(char first) {
  tok_buf = first;
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
  char c = get_char();
  while (!eof() && c != '"') {
    tok_buf += c;
    c = get_char();
  }
}

void read_unquoted(char c) {
  while (c != ',') {
    tok_buf += c;
    if (eof()) return;
    c = get_char();
    if (is_space(c)) return;
  }
  unget_char();
}

}  // namespace

const char* token_name(token kind) {
  return kind >= T_CREATE && kind <= T_ERROR ? tok_names[kind] : nullptr;
}

token gettoken() {
  tok_buf.clear();
  if (eof()) {
    err_buf = tok_buf;
    return T_EOF;
  }
  char first = '\0';
  if (!skip_blanks(&first)) return T_EOF;
  const token kind = read_token(first);
  err_buf = tok_buf;
  return kind;
}

token getstring() {
  // At the very end the "=" stays in tok_buf, and becomes the path.
  if (eof()) return T_STRING;
  tok_buf.clear();
  char first = '\0';
  if (!skip_blanks(&first)) return T_EOF;
  if (first == '"') {
    read_quoted();
  } else {
    read_unquoted(first);
  }
  return T_STRING;
}

void match(token kind) {
  if (lookahead != kind) error();
  lookahead = gettoken();
}

void error() {
  if (eof()) err_buf += "\\n";
  std::printf("Error: %s\n", err_buf.c_str());
  std::fwrite(in_buf.data(), 1, tok_pos, stdout);
  const int blanks = tok_pos > 1 ? static_cast<int>(tok_pos - 1) : 0;
  std::printf("\n%*s^\n", blanks, "");
  usage();
  crash();
}

}  // namespace resmgr
