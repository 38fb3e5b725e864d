#include "common/base/number.h"

#include <cstdlib>

std::optional<NumberRead> readNumber(const char* text, int base) {
  if (text == nullptr) return std::nullopt;
  char* rest = nullptr;
  const long long value = std::strtoll(text, &rest, base);
  if (rest == text) return std::nullopt;
  return NumberRead{value, rest};
}
