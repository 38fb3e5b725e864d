#include "kern/mox_res_mgr/numbers.h"

#include <algorithm>
#include <limits>
#include <string>

#include "kern/mox_res_mgr/lexer.h"

namespace resmgr {

namespace {

[[noreturn]] void too_big() {
  error("number " + std::string(tok_buf) + " is too big");
}

void expect_number() {
  if (lookahead != T_INT) error();
}

std::uint32_t step(std::uint32_t value, char digit) {
  return value * 10 + static_cast<std::uint32_t>(digit - '0');
}

// The value modulo 2^32 of the token's digits; too big when a step makes it smaller, compared as
// `Compared`.
template <class Compared>
std::uint32_t accumulate() {
  std::uint32_t value = 0;
  for (const char digit : tok_buf) {
    const std::uint32_t next = step(value, digit);
    if (static_cast<Compared>(next) < static_cast<Compared>(value)) too_big();
    value = next;
  }
  return value;
}

// The value of the token's digits, or the largest signed one when that is smaller.
std::int32_t saturate() {
  constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
  std::int64_t value = 0;
  for (const char digit : tok_buf) value = std::min(value * 10 + (digit - '0'), most);
  return static_cast<std::int32_t>(value);
}

}  // namespace

std::uint32_t to_unsigned_32() {
  expect_number();
  const std::uint32_t value = accumulate<std::uint32_t>();
  match(T_INT);
  return value;
}

std::int32_t to_signed_32() {
  expect_number();
  const std::int32_t value = saturate();
  match(T_INT);
  return value;
}

std::int32_t to_key_t() {
  match(T_EQUAL);
  expect_number();
  const std::uint32_t value = accumulate<std::int32_t>();
  match(T_INT);
  return static_cast<std::int32_t>(value);
}

std::uint32_t to_size_t() {
  match(T_EQUAL);
  expect_number();
  const std::uint32_t value = accumulate<std::uint32_t>();
  if (value != static_cast<std::uint32_t>(saturate())) too_big();
  match(T_INT);
  return value;
}

}  // namespace resmgr
