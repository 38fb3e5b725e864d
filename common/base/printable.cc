#include "common/base/printable.h"

#include <cstdint>

std::size_t utf8Length(std::string_view text) {
  if (text.empty()) return 0;
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
  std::uint32_t character = first & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    character = character << 6 | (byte(i) & 0x3f);
  }
  // Overlong forms and surrogates.
  constexpr std::uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = character >= 0xd800 && character <= 0xdfff;
  return character >= smallest[length] && character <= 0x10ffff && !surrogate ? length : 0;
}

namespace {

// The length of the printable character at the start of `text`; 0: none.
std::size_t printableLength(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const std::size_t length = utf8Length(text);
  const bool control = (length == 1 && (byte(0) < 0x20 || byte(0) == 0x7f)) ||
                       (length == 2 && byte(0) == 0xc2 && byte(1) < 0xa0);
  return control ? 0 : length;
}

std::string escaped(unsigned char byte) {
  constexpr char digits[] = "0123456789abcdef";
  switch (byte) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return {'\\', 'x', digits[byte >> 4], digits[byte & 0xf]};
  }
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = printableLength(text);
    if (length > 0) {
      result += text.substr(0, length);
    } else {
      result += escaped(static_cast<unsigned char>(text[0]));
    }
    text.remove_prefix(length > 0 ? length : 1);
  }
  return result;
}
