// The number conversions of the command language. Each takes the digits of the look-ahead token,
// which must be T_INT, and steps over it; a number that is too big is a syntax error.
// The range checks compare each step of a conversion with the step before. That misses some
// overflows: 42949672959 is taken for 4294967295, and callers rely on what is accepted today.
#pragma once

#include <cstdint>

namespace resmgr {

std::uint32_t to_unsigned_32();  // a node or device number
std::int32_t to_signed_32();     // a device size; too big becomes 2147483647

// These two step over a "=" first.
std::int32_t to_key_t();    // a base key
std::uint32_t to_size_t();  // a buffer size, at most 2147483647

}  // namespace resmgr
