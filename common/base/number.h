// Integers in texts, as scanf's %i reads them: blanks, a sign, then decimal, octal with a leading
// 0, or hexadecimal with 0x.
//   const auto number = readNumber(text);
//   if (number && number->isWhole() && number->isWithin(0, 8)) ...
#pragma once

#include <cstdint>
#include <optional>

struct NumberRead {
  std::int64_t value;  // the nearest one for digits that 64 bits cannot hold
  const char* rest;    // what stands behind the digits, in the text that was read

  bool isWhole() const { return *rest == '\0'; }
  bool isWithin(std::int64_t minimum, std::int64_t maximum) const {
    return value >= minimum && value <= maximum;
  }
};

// Nothing when the text is null or does not begin with a number. `base` 0 looks at the prefix, 16
// reads hexadecimal digits with or without it.
std::optional<NumberRead> readNumber(const char* text, int base = 0);
