#include "kern/mox_node/jsonwriter.h"

#include <algorithm>
#include <cstdio>

#include "common/base/printable.h"

namespace moxnode {

namespace {

void append_escaped(Lines& to, unsigned code) {
  char escape[8];
  std::snprintf(escape, sizeof escape, "\\u%04x", code);
  to.add(std::string_view(escape));
}

bool is_plain(char character) {
  return character >= ' ' && character < 0x7f && character != '"' && character != '\\';
}

void append_character(Lines& to, std::string_view character) {
  const auto code = static_cast<unsigned char>(character[0]);
  if (code < 0x20 || code == 0x7f) {
    append_escaped(to, code);
  } else {
    if (code == '"' || code == '\\') to.add('\\');
    to.add(character);
  }
}

}  // namespace

void JsonWriter::value(std::string_view text) {
  text_.add('"');
  // Most texts are plain words.
  const auto plain = std::ranges::find_if_not(text, is_plain);
  const auto plain_length = static_cast<std::size_t>(plain - text.begin());
  text_.add(text.substr(0, plain_length));
  text.remove_prefix(plain_length);
  while (!text.empty()) {
    const std::size_t length = utf8Length(text);
    if (length > 0) {
      append_character(text_, text.substr(0, length));
    } else {
      append_escaped(text_, 0xdc00U + static_cast<unsigned char>(text[0]));
    }
    text.remove_prefix(length > 0 ? length : 1);
  }
  text_.add("\",");
}

}  // namespace moxnode
