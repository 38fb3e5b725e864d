// The two encodings of integers on a device. Plain: most significant byte first. Biased: the same
// with the top bit inverted, so that the stored bytes sort like the signed values. A biased value
// keeps its type's width; use the unsigned type of that width to see its bits.
#pragma once

#include <climits>
#include <cstddef>
#include <type_traits>

template <class T>
using Bits = std::make_unsigned_t<T>;

template <class T>
constexpr Bits<T> top_bit = static_cast<Bits<T>>(Bits<T>{1} << (sizeof(T) * CHAR_BIT - 1));

// Both return the position just past the bytes.
template <class T>
unsigned char* store_plain(unsigned char* to, T value) {
  for (std::size_t left = sizeof(T); left-- > 0;) {
    *to++ = static_cast<unsigned char>(static_cast<Bits<T>>(value) >> (left * CHAR_BIT));
  }
  return to;
}

template <class T>
const unsigned char* load_plain(const unsigned char* from, T& value) {
  unsigned long long bits = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) bits = bits << CHAR_BIT | *from++;
  value = static_cast<T>(bits);
  return from;
}

template <class T>
unsigned char* store_biased(unsigned char* to, T value) {
  return store_plain(to, static_cast<Bits<T>>(static_cast<Bits<T>>(value) ^ top_bit<T>));
}

template <class T>
const unsigned char* load_biased(const unsigned char* from, T& value) {
  Bits<T> bits = 0;
  from = load_plain(from, bits);
  value = static_cast<T>(static_cast<Bits<T>>(bits ^ top_bit<T>));
  return from;
}
