// Puts text together, as fast as the kernel answers about the nodes that it tells of.
//   Lines lines(100);
//   lines.add("node-", 7, '\n');
//   ... lines.text() ...
#pragma once

#include <algorithm>
#include <charconv>
#include <concepts>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

namespace moxnode {

class Lines {
 public:
  explicit Lines(std::size_t expected_bytes)
      : buffer_(std::make_unique_for_overwrite<char[]>(expected_bytes)), size_(expected_bytes) {}

  // Adds literals, characters, numbers and texts. All get their space at once: with a few bytes
  // each, to look for space takes longer than to fill it.
  template <class... Pieces>
  void add(const Pieces&... pieces) {
    const std::size_t most_bytes = (most_bytes_of(pieces) + ...);
    if (most_bytes > size_ - used_) grow(most_bytes);
    char* at = buffer_.get() + used_;
    ((at = put(at, pieces)), ...);
    used_ = static_cast<std::size_t>(at - buffer_.get());
  }

  // Takes the last character back if it is this one.
  void take_back(char character) {
    if (used_ > 0 && buffer_[used_ - 1] == character) --used_;
  }

  // Up to the next call of add.
  std::string_view text() const { return {buffer_.get(), used_}; }

 private:
  template <class Piece>
  static constexpr bool is_number =
      std::integral<Piece> && !std::same_as<Piece, char> && !std::same_as<Piece, bool>;

  static constexpr std::size_t most_bytes_of(char /*character*/) { return 1; }
  static constexpr std::size_t most_bytes_of(std::string_view text) { return text.size(); }
  template <std::size_t size>
  static constexpr std::size_t most_bytes_of(const char (&)[size]) {
    return size - 1;
  }
  template <class Number>
  requires is_number<Number>
  static constexpr std::size_t most_bytes_of(Number /*number*/) {
    return std::numeric_limits<Number>::digits10 + 2;  // with the sign
  }

  static char* put(char* at, char character) {
    *at = character;
    return at + 1;
  }
  static char* put(char* at, std::string_view text) {
    return std::copy(text.begin(), text.end(), at);
  }
  // The length of a literal is known to the compiler, which needs no loop for it.
  template <std::size_t size>
  static char* put(char* at, const char (&literal)[size]) {
    return std::copy_n(literal, size - 1, at);
  }
  template <class Number>
  requires is_number<Number>
  static char* put(char* at, Number number) {
    return std::to_chars(at, at + most_bytes_of(number), number).ptr;
  }

  void grow(std::size_t more_bytes) {
    const std::size_t size = std::max(2 * size_, used_ + more_bytes);
    auto larger = std::make_unique_for_overwrite<char[]>(size);
    std::copy_n(buffer_.get(), used_, larger.get());
    buffer_ = std::move(larger);
    size_ = size;
  }

  std::unique_ptr<char[]> buffer_;
  std::size_t size_;
  std::size_t used_ = 0;
};

}  // namespace moxnode
