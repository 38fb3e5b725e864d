#include "kern/mox_node/jsonwriter.h"

#include <cstdio>

#include "common/base/printable.h"

namespace moxnode {

namespace {

void append_escaped(std::string& to, unsigned code) {
  char escape[8];
  std::snprintf(escape, sizeof escape, "\\u%04x", code);
  to += escape;
}

void append_character(std::string& to, std::string_view character) {
  const auto code = static_cast<unsigned char>(character[0]);
  if (code < 0x20 || code == 0x7f) {
    append_escaped(to, code);
  } else {
    if (code == '"' || code == '\\') to += '\\';
    to += character;
  }
}

}  // namespace

void JsonWriter::value(std::string_view text) {
  separate();
  text_ += '"';
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    if (length > 0) {
      append_character(text_, text.substr(0, length));
    } else {
      append_escaped(text_, 0xdc00U + static_cast<unsigned char>(text[0]));
    }
    text.remove_prefix(length > 0 ? length : 1);
  }
  text_ += '"';
}

}  // namespace moxnode
